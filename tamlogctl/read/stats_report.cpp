#include "tamlogctl/read/stats_report.h"

#include <algorithm>

#include "client/format/format_parts.h"
#include "client/message/utf8.h"
#include "tamlogctl/base/columns.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/json.h"
#include "tamlogctl/select/time_arithmetic.h"

namespace TamLogCtl {

namespace {

using TamLogClient::FormatOptions;
using TamLogClient::TimeWords;

constexpr std::size_t kBarWidth = 30;
constexpr std::size_t kMostPeriods = 60;

std::string TextOf(const TimeWords& words, char separator, std::size_t length = std::string::npos) {
  std::string text;
  TamLogClient::AppendTime(words, separator, text);
  return text.substr(0, length);
}

constexpr std::size_t kUpToMinute = 16;  // of "2026-01-02 03:04:05.678"

std::string Duration(double seconds) {
  if (seconds < 120) return Fixed(seconds, 1) + " s";
  if (seconds < 7200) return Fixed(seconds / 60, 1) + " min";
  if (seconds < 172800) return Fixed(seconds / 3600, 1) + " h";
  return Fixed(seconds / 86400, 1) + " days";
}

// Lines with a name, a count, its share and a bar.
class Table {
 public:
  Table(std::uint64_t whole, bool withBars) : total(whole), bars(withBars) {}

  void Add(const std::string& name, std::uint64_t count) {
    rows.emplace_back(name, count);
    widest = std::max(widest, name.size());
    largest = std::max(largest, count);
  }

  void Append(const std::string& title, std::string& out) const {
    if (rows.empty()) return;
    out += "\n" + title + "\n";
    for (const auto& [name, count] : rows) {
      const double share =
          100.0 * static_cast<double>(count) / static_cast<double>(std::max<std::uint64_t>(total, 1));
      out += "  " + AlignedLeft(name, widest) + "  " + AlignedRight(std::to_string(count), 9) + "  " +
             AlignedRight(Fixed(share, 1), 5) + " %";
      if (bars && largest > 0) out += "  " + std::string(BarLength(count), '#');
      out += '\n';
    }
  }

 private:
  std::size_t BarLength(std::uint64_t count) const {
    const std::uint64_t length = (count * kBarWidth + largest - 1) / largest;
    return static_cast<std::size_t>(length);
  }

  std::vector<std::pair<std::string, std::uint64_t>> rows;
  std::uint64_t total;
  std::uint64_t largest = 0;
  std::size_t widest = 0;
  bool bars;
};

// Returns the shortest period, in minutes, for which the list stays readable, and the title of the list.
std::pair<std::uint32_t, const char*> PeriodFor(const MessageStats& stats) {
  constexpr std::uint32_t kTen = 10;
  constexpr std::uint32_t kHour = 60;
  constexpr std::uint32_t kDay = 1440;
  for (const auto& [minutes, title] :
       {std::pair{1U, "by minute"}, std::pair{kTen, "by ten minutes"}, std::pair{kHour, "by hour"}}) {
    if (stats.Periods(minutes).size() <= kMostPeriods) return {minutes, title};
  }
  return {kDay, "by day"};
}

std::string RingText(const StatsCollector& collector) {
  const std::uint64_t capacity = collector.Capacity();
  std::string text =
      "ring         " + std::to_string(collector.Messages()) + " of " + std::to_string(capacity) + " slots";
  if (!collector.Oldest()) return text + "\n";
  const double depth = SecondsBetween(*collector.Oldest(), *collector.Newest());
  text += ", " + Duration(depth) + " deep (" + TextOf(*collector.Oldest(), ' ') + " to " +
          TextOf(*collector.Newest(), ' ') + ")\n";
  if (!collector.Full() && depth >= 1.0 && collector.Messages() > 1) {
    const double whole = depth / static_cast<double>(collector.Messages()) * static_cast<double>(capacity);
    text += "             about " + Duration(whole) + " deep when it is full\n";
  }
  return text;
}

std::string LabelOf(const FormatOptions& shown, std::size_t type) {
  std::string label;
  shown.typeNames.Append(static_cast<std::uint32_t>(type), label);
  return label;
}

void AppendSources(const StatsOptions& options, const MessageStats& stats, const FormatOptions& shown,
                   Table table, std::string& out) {
  const auto list = stats.Sources();
  const std::size_t listed = options.top == 0 ? list.size() : std::min(options.top, list.size());
  std::uint64_t others = 0;
  for (std::size_t i = 0; i < list.size(); ++i) {
    std::string name;
    TamLogClient::AppendShown(list[i].name, shown.encoding, name);
    if (i < listed) table.Add(name, list[i].count);
    if (i >= listed) others += list[i].count;
  }
  if (others > 0) table.Add("(" + std::to_string(list.size() - listed) + " others)", others);
  table.Append("by source", out);
}

void AppendTypes(const MessageStats& stats, const FormatOptions& shown, Table table, std::string& out) {
  for (std::size_t type = 0; type <= kMessageTypes; ++type) {
    const std::uint64_t count = stats.Types()[type];
    if (count > 0) table.Add(type < kMessageTypes ? LabelOf(shown, type) : "other", count);
  }
  table.Append("by type", out);
}

void AppendPeriods(const MessageStats& stats, Table table, std::string& out) {
  const auto [minutes, title] = PeriodFor(stats);
  for (const MessageStats::Period& period : stats.Periods(minutes)) {
    table.Add(TextOf(period.begin, ' ', kUpToMinute), period.count);
  }
  table.Append(title, out);
}

Json TimeOrNull(const std::optional<TimeWords>& words) {
  return words ? Json(TextOf(*words, 'T')) : Json();
}

template <typename Counts>
JsonArray ArrayOf(const Counts& counts) {
  return JsonArray(counts.begin(), counts.end());
}

JsonObject ObjectOf(const MessageStats::Source& source, const FormatOptions& shown) {
  std::string name;
  const bool readable = TamLogClient::AppendAsUtf8(source.name, shown.encoding, name);
  JsonObject object{{"count", source.count}, {"source", std::move(name)}};
  if (!readable) {
    std::string bytes;
    TamLogClient::AppendHex(source.name, bytes);
    object.emplace_back("source_hex", std::move(bytes));
  }
  object.emplace_back("types", ArrayOf(source.types));
  return object;
}

JsonObject RingObject(const StatsCollector& collector) {
  const auto& oldest = collector.Oldest();
  return {{"capacity", collector.Capacity()},
          {"depth_seconds", oldest ? Json(SecondsBetween(*oldest, *collector.Newest())) : Json()},
          {"full", collector.Full()},
          {"messages", collector.Messages()},
          {"newest", TimeOrNull(collector.Newest())},
          {"oldest", TimeOrNull(oldest)}};
}

JsonArray LabelArray(const FormatOptions& shown) {
  JsonArray labels;
  for (std::uint32_t type = 0; type < kMessageTypes; ++type) labels.emplace_back(LabelOf(shown, type));
  return labels;
}

}  // namespace

std::string StatsText(const StatsOptions& options, const StatsCollector& collector,
                      const FormatOptions& shown) {
  const MessageStats& stats = collector.Wanted();
  std::string out = RingText(collector) + "messages     " + std::to_string(stats.Count());
  if (const auto rate = stats.PerMinute()) {
    out += ", " + Fixed(*rate, 1) + " a minute over " + Duration(stats.SpanSeconds().value_or(0));
  }
  out += '\n';
  if (stats.Timeless() > 0) out += "no real time " + std::to_string(stats.Timeless()) + "\n";
  const Table empty(stats.Count(), options.bars || StdoutIsTerminal());
  AppendSources(options, stats, shown, empty, out);
  AppendTypes(stats, shown, empty, out);
  AppendPeriods(stats, empty, out);
  return out;
}

// Members are in order of their names.
std::string StatsJson(const StatsCollector& collector, const FormatOptions& shown) {
  const MessageStats& stats = collector.Wanted();
  JsonArray minutes;
  for (const MessageStats::Period& minute : stats.Periods(1)) {
    minutes.emplace_back(
        JsonObject{{"count", minute.count}, {"minute", TextOf(minute.begin, 'T', kUpToMinute)}});
  }
  JsonArray sources;
  for (const MessageStats::Source& source : stats.Sources()) sources.emplace_back(ObjectOf(source, shown));
  JsonObject whole;
  if (shown.typeNames.Given()) whole.emplace_back("labels", LabelArray(shown));
  whole.emplace_back("messages", stats.Count());
  whole.emplace_back("minutes", std::move(minutes));
  whole.emplace_back("newest", TimeOrNull(stats.Newest()));
  whole.emplace_back("no_real_time", stats.Timeless());
  whole.emplace_back("oldest", TimeOrNull(stats.Oldest()));
  whole.emplace_back("per_minute", stats.PerMinute());
  whole.emplace_back("ring", RingObject(collector));
  whole.emplace_back("sources", std::move(sources));
  whole.emplace_back("span_seconds", stats.SpanSeconds());
  whole.emplace_back("types", ArrayOf(stats.Types()));
  return WriteJson(whole) + "\n";
}

}  // namespace TamLogCtl
