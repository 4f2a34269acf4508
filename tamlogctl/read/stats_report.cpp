#include "tamlogctl/read/stats_report.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "client/format/format_parts.h"
#include "client/message/utf8.h"
#include "tamlogctl/base/columns.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/counted.h"
#include "tamlogctl/base/json.h"
#include "tamlogctl/base/time_arithmetic.h"

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

std::string DurationText(double seconds) {
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

  // Adds a line that interrupts the rows.
  void AddRemark(const std::string& text) { rows.emplace_back(text, std::nullopt); }

  void Append(const std::string& title, std::string& out) const {
    if (rows.empty()) return;
    out += "\n" + title + "\n";
    for (const auto& [name, given] : rows) {
      if (!given) out += "  " + name + "\n";
      if (!given) continue;
      const std::uint64_t count = *given;
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

  std::vector<std::pair<std::string, std::optional<std::uint64_t>>> rows;
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
  text += ", " + DurationText(depth) + " deep (" + TextOf(*collector.Oldest(), ' ') + " to " +
          TextOf(*collector.Newest(), ' ') + ")\n";
  if (!collector.Full() && depth >= 1.0 && collector.Messages() > 1) {
    const double whole = depth / static_cast<double>(collector.Messages()) * static_cast<double>(capacity);
    text += "             about " + DurationText(whole) + " deep when it is full\n";
  }
  return text;
}

std::string LabelOf(const FormatOptions& shown, std::size_t type) {
  std::string label;
  shown.typeNames.Append(static_cast<std::uint32_t>(type), label);
  return label;
}

std::string TimeTo(const std::optional<TimeWords>& words, std::size_t length) {
  return words ? TextOf(*words, ' ', length) : "-";
}

// Sources with a column for each type that occurs, and the times of their first and last messages.
class SourceTable {
 public:
  SourceTable(const MessageStats& counts, const FormatOptions& formats) : stats(counts), shown(formats) {
    for (std::size_t type = 0; type <= kMessageTypes; ++type) {
      if (stats.Types()[type] > 0) columns.push_back(type);
    }
  }

  void Add(std::string name, const MessageStats::Source& source) {
    widest = std::max(widest, name.size());
    rows.emplace_back(std::move(name), source);
  }

  void Append(std::string& out) const {
    if (rows.empty()) return;
    out += "\n" + AlignedLeft("by source", widest + 2) + "  " + AlignedRight("messages", kCount) + "  " +
           AlignedRight("share", kShare);
    for (const std::size_t type : columns) out += "  " + AlignedRight(HeadOf(type), WidthOf(type));
    out += "  " + AlignedLeft("first", kUpToSecond) + "  last\n";
    for (const auto& [name, source] : rows) {
      const double share = 100.0 * static_cast<double>(source.count) / static_cast<double>(stats.Count());
      out += "  " + AlignedLeft(name, widest) + "  " + AlignedRight(std::to_string(source.count), kCount) +
             "  " + AlignedRight(Fixed(share, 1) + " %", kShare);
      for (const std::size_t type : columns) {
        out += "  " + AlignedRight(std::to_string(source.types[type]), WidthOf(type));
      }
      out += "  " + AlignedLeft(TimeTo(source.oldest, kUpToSecond), kUpToSecond) + "  " +
             TimeTo(source.newest, kUpToSecond) + "\n";
    }
  }

 private:
  static constexpr std::size_t kCount = 9;
  static constexpr std::size_t kShare = 7;
  static constexpr std::size_t kUpToSecond = 19;  // of "2026-01-02 03:04:05.678"

  std::string HeadOf(std::size_t type) const { return type < kMessageTypes ? LabelOf(shown, type) : "other"; }
  std::size_t WidthOf(std::size_t type) const {
    return std::max(HeadOf(type).size(), std::to_string(stats.Types()[type]).size());
  }

  const MessageStats& stats;
  const FormatOptions& shown;
  std::vector<std::size_t> columns;  // types
  std::vector<std::pair<std::string, MessageStats::Source>> rows;
  std::size_t widest = 10;
};

void AddTo(MessageStats::Source& sum, const MessageStats::Source& source) {
  sum.count += source.count;
  for (std::size_t type = 0; type <= kMessageTypes; ++type) sum.types[type] += source.types[type];
  if (source.oldest && (!sum.oldest || *source.oldest < *sum.oldest)) sum.oldest = source.oldest;
  if (source.newest && (!sum.newest || *source.newest > *sum.newest)) sum.newest = source.newest;
}

void AppendSources(const StatsOptions& options, const MessageStats& stats, const FormatOptions& shown,
                   std::string& out) {
  const auto list = stats.Sources();
  const std::size_t listed = options.top == 0 ? list.size() : std::min(options.top, list.size());
  SourceTable table(stats, shown);
  MessageStats::Source others;
  for (std::size_t i = 0; i < list.size(); ++i) {
    std::string name;
    TamLogClient::AppendShown(list[i].name, shown.encoding, name);
    if (i < listed) table.Add(std::move(name), list[i]);
    if (i >= listed) AddTo(others, list[i]);
  }
  if (others.count > 0) table.Add("(" + Counted(list.size() - listed, "other") + ")", others);
  table.Append(out);
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
  std::optional<TimeWords> before;
  for (const MessageStats::Period& period : stats.Periods(minutes)) {
    const double empty = before ? SecondsBetween(*before, period.begin) - minutes * 60.0 : 0;
    if (empty > 0) table.AddRemark("(nothing for " + DurationText(empty) + ")");
    before = period.begin;
    table.Add(TextOf(period.begin, ' ', kUpToMinute), period.count);
  }
  table.Append(title, out);
}

// Returns messages per unit of time, in the smallest unit in which they are at least one, but none that is
// longer than the span: a burst of a second says nothing about a day.
std::string RateText(double messages, double seconds) {
  struct Unit {
    const char* name;
    double seconds;
  };
  constexpr std::array<Unit, 4> kUnits{
      {{"a second", 1}, {"a minute", 60}, {"an hour", 3600}, {"a day", 86400}}};
  const Unit* chosen = nullptr;
  for (const Unit& unit : kUnits) {
    if (unit.seconds > seconds) break;
    chosen = &unit;
    if (messages / seconds * unit.seconds >= 1) break;
  }
  return chosen == nullptr ? "" : Fixed(messages / seconds * chosen->seconds, 1) + " " + chosen->name;
}

std::string CountsText(const MessageStats& stats) {
  std::string out = "messages     " + std::to_string(stats.Count());
  const double span = stats.SpanSeconds().value_or(0);
  if (stats.Oldest())
    out += ", " + TextOf(*stats.Oldest(), ' ') + " to " + TextOf(*stats.Newest(), ' ') + " (" +
           DurationText(span) + ")";
  out += '\n';
  const auto timed = static_cast<double>(stats.Count() - stats.Timeless());
  const auto rate = RateText(timed, span);
  const auto busiest = stats.BusiestMinute();
  if (!rate.empty()) {
    out += "rate         " + rate + " on average";
    if (span >= 60)
      out += ", " + Fixed(timed / static_cast<double>(stats.ActiveMinutes()), 1) + " a minute in the " +
             Counted(stats.ActiveMinutes(), "minute") + " with messages, " + std::to_string(busiest->count) +
             " in the busiest (" + TextOf(busiest->begin, ' ', kUpToMinute) + ")";
    out += '\n';
  }
  constexpr std::size_t kShownGaps = 3;
  const char* title = "longest gaps ";
  for (const MessageStats::Gap& gap : stats.Gaps(kShownGaps)) {
    out += title + DurationText(gap.Seconds()) + " from " + TextOf(gap.from, ' ') + " to " +
           TextOf(gap.to, ' ') + "\n";
    title = "             ";
  }
  if (stats.Timeless() > 0) out += "no real time " + std::to_string(stats.Timeless()) + "\n";
  return out;
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
  JsonObject object{{"count", source.count},
                    {"newest", TimeOrNull(source.newest)},
                    {"oldest", TimeOrNull(source.oldest)},
                    {"source", std::move(name)}};
  if (!readable) {
    std::string bytes;
    TamLogClient::AppendHex(source.name, bytes);
    object.emplace_back("source_hex", std::move(bytes));
  }
  object.emplace_back("types", ArrayOf(source.types));
  return object;
}

Json BusiestOrNull(const MessageStats& stats) {
  const auto busiest = stats.BusiestMinute();
  if (!busiest) return {};
  return JsonObject{{"count", busiest->count}, {"minute", TextOf(busiest->begin, 'T', kUpToMinute)}};
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
  std::string out = RingText(collector) + CountsText(stats);
  const Table empty(stats.Count(), options.bars || StdoutIsTerminal());
  AppendSources(options, stats, shown, out);
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
  constexpr std::size_t kGaps = 20;
  JsonArray gaps;
  for (const MessageStats::Gap& gap : stats.Gaps(kGaps)) {
    gaps.emplace_back(
        JsonObject{{"from", TextOf(gap.from, 'T')}, {"seconds", gap.Seconds()}, {"to", TextOf(gap.to, 'T')}});
  }
  JsonObject whole{{"active_minutes", std::uint64_t{stats.ActiveMinutes()}},
                   {"busiest_minute", BusiestOrNull(stats)},
                   {"gaps", std::move(gaps)}};
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
