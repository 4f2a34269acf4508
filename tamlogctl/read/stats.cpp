#include "tamlogctl/read/stats.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "client/file/log_file_reader.h"
#include "client/file/log_file_scan.h"
#include "client/format/format_parts.h"
#include "client/message/hex.h"
#include "client/message/utf8.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/progress.h"

namespace TamLogCtl {

namespace {

using nlohmann::json;
using TamLogClient::FormatOptions;
using TamLogClient::LogMessageView;
using TamLogClient::MessageStats;
using TamLogClient::Status;
using TamLogClient::TimeWords;

constexpr std::size_t kBarWidth = 30;
constexpr std::size_t kMostPeriods = 60;

std::string TextOf(const TimeWords& words, char separator, std::size_t length = std::string::npos) {
  std::string text;
  TamLogClient::AppendTime(words, separator, text);
  return text.substr(0, length);
}

constexpr std::size_t kUpToMinute = 16;  // of "2026-01-02 03:04:05.678"

double Between(const TimeWords& oldest, const TimeWords& newest) {
  const auto minutes = TamLogClient::MinuteOf(newest) - TamLogClient::MinuteOf(oldest);
  return static_cast<double>(minutes) * 60.0 + (newest[5] - oldest[5]) + (newest[6] - oldest[6]) / 1000.0;
}

std::string Duration(double seconds) {
  if (seconds < 120) return fmt::format("{:.1f} s", seconds);
  if (seconds < 7200) return fmt::format("{:.1f} min", seconds / 60);
  if (seconds < 172800) return fmt::format("{:.1f} h", seconds / 3600);
  return fmt::format("{:.1f} days", seconds / 86400);
}

// Lines of a name, a count, its share and a bar.
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
      out += fmt::format("  {:<{}}  {:>9}  {:>5.1f} %", name, widest, count, share);
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

// The shortest length that keeps the list readable.
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
  std::string text = fmt::format("ring         {} of {} slots", collector.Messages(), capacity);
  if (!collector.Oldest()) return text + "\n";
  const double depth = Between(*collector.Oldest(), *collector.Newest());
  text += fmt::format(", {} deep ({} to {})\n", Duration(depth), TextOf(*collector.Oldest(), ' '),
                      TextOf(*collector.Newest(), ' '));
  if (!collector.Full() && depth >= 1.0 && collector.Messages() > 1) {
    const double whole = depth / static_cast<double>(collector.Messages()) * static_cast<double>(capacity);
    text += fmt::format("             about {} deep when it is full\n", Duration(whole));
  }
  return text;
}

std::string LabelOf(const FormatOptions& shown, std::size_t type) {
  std::string label;
  shown.typeNames.Append(static_cast<std::uint32_t>(type), label);
  return label;
}

std::string AsText(const StatsOptions& options, const StatsCollector& collector, const FormatOptions& shown) {
  const MessageStats& stats = collector.Wanted();
  const bool bars = options.bars || StdoutIsTerminal();
  std::string out = RingText(collector);
  out += fmt::format("messages     {}", stats.Count());
  if (const auto rate = stats.PerMinute()) {
    out += fmt::format(", {:.1f} a minute over {}", *rate, Duration(stats.SpanSeconds().value_or(0)));
  }
  out += '\n';
  if (stats.Timeless() > 0) out += fmt::format("no real time {}\n", stats.Timeless());
  Table sources(stats.Count(), bars);
  const auto list = stats.Sources();
  const std::size_t listed = options.top == 0 ? list.size() : std::min(options.top, list.size());
  std::uint64_t others = 0;
  for (std::size_t i = 0; i < list.size(); ++i) {
    std::string name;
    TamLogClient::AppendShown(list[i].name, shown.encoding, name);
    if (i < listed) sources.Add(name, list[i].count);
    if (i >= listed) others += list[i].count;
  }
  if (others > 0) sources.Add(fmt::format("({} others)", list.size() - listed), others);
  sources.Append("by source", out);
  Table types(stats.Count(), bars);
  for (std::size_t type = 0; type <= kMessageTypes; ++type) {
    const std::uint64_t count = stats.Types()[type];
    if (count > 0) types.Add(type < kMessageTypes ? LabelOf(shown, type) : "other", count);
  }
  types.Append("by type", out);
  const auto [minutes, title] = PeriodFor(stats);
  Table periods(stats.Count(), bars);
  for (const MessageStats::Period& period : stats.Periods(minutes)) {
    periods.Add(TextOf(period.begin, ' ', kUpToMinute), period.count);
  }
  periods.Append(title, out);
  return out;
}

json TimeOrNull(const std::optional<TimeWords>& words) {
  return words ? json(TextOf(*words, 'T')) : json(nullptr);
}

json AsJson(const MessageStats::Source& source, const FormatOptions& shown) {
  std::string name;
  json object{{"count", source.count}, {"types", source.types}};
  if (!TamLogClient::AppendAsUtf8(source.name, shown.encoding, name)) {
    std::string bytes;
    TamLogClient::AppendHex(source.name, bytes);
    object["source_hex"] = bytes;
  }
  object["source"] = name;
  return object;
}

std::string AsJson(const StatsCollector& collector, const FormatOptions& shown) {
  const MessageStats& stats = collector.Wanted();
  json whole;
  const auto orNull = [](const std::optional<double>& value) { return value ? json(*value) : json(nullptr); };
  whole["messages"] = stats.Count();
  whole["oldest"] = TimeOrNull(stats.Oldest());
  whole["newest"] = TimeOrNull(stats.Newest());
  whole["span_seconds"] = orNull(stats.SpanSeconds());
  whole["per_minute"] = orNull(stats.PerMinute());
  whole["no_real_time"] = stats.Timeless();
  whole["types"] = stats.Types();
  if (shown.typeNames.Given()) {
    whole["labels"] = json::array();
    for (std::uint32_t type = 0; type < kMessageTypes; ++type)
      whole["labels"].push_back(LabelOf(shown, type));
  }
  whole["sources"] = json::array();
  for (const MessageStats::Source& source : stats.Sources()) {
    whole["sources"].push_back(AsJson(source, shown));
  }
  whole["minutes"] = json::array();
  for (const MessageStats::Period& minute : stats.Periods(1)) {
    whole["minutes"].push_back({{"minute", TextOf(minute.begin, 'T', kUpToMinute)}, {"count", minute.count}});
  }
  json& ring = whole["ring"];
  ring["messages"] = collector.Messages();
  ring["capacity"] = collector.Capacity();
  ring["full"] = collector.Full();
  ring["oldest"] = TimeOrNull(collector.Oldest());
  ring["newest"] = TimeOrNull(collector.Newest());
  ring["depth_seconds"] =
      collector.Oldest() ? json(Between(*collector.Oldest(), *collector.Newest())) : json(nullptr);
  return whole.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

// A file that is as it should be is counted without holding its messages.
int CollectFile(const std::string& path, StatsCollector& collector) {
  const Busy busy("counting " + path);
  TamLogClient::LogFileScan scan;
  StatsCollector before = collector;
  if (scan.Open(path)) {
    collector.AddRing(scan.Header());
    const auto add = [&collector](const LogMessage& message) {
      collector.Add(message);
      return true;
    };
    if (scan.ForEach(add)) return kDone;
    collector = std::move(before);
  }
  const auto contents = TamLogClient::ReadLogFile(path);
  if (contents.status != Status::Ok) {
    Say(FileProblem(path, contents.status, contents.remark));
  }
  if (!Readable(contents.status)) return ExitCodeOf(contents.status);
  collector.AddRing(contents.snapshot.header);
  for (const std::uint32_t slot : contents.snapshot.RingOrder()) collector.Add(contents.snapshot.slots[slot]);
  return ExitCodeOf(contents.status);
}

}  // namespace

void StatsCollector::AddRing(const LogFileHeader& header) {
  if (header.maxMessages > 0) capacity += static_cast<std::uint64_t>(header.maxMessages);
  full = header.messageCount >= header.maxMessages;
}

void StatsCollector::Add(const LogMessage& message) {
  const LogMessageView view(message);
  ++messages;
  if (view.Damaged()) ++damaged;
  const TimeWords words = TamLogClient::WordsOf(view.Body());
  if (TamLogClient::IsRealTime(words)) {
    if (!oldest || words < *oldest) oldest = words;
    if (!newest || words > *newest) newest = words;
  }
  if (!selection.Wants(view)) return;
  if (!last) return stats.Add(view);
  newestWanted.emplace(view.Key(), message);
  if (newestWanted.size() > *last) newestWanted.erase(newestWanted.begin());
}

void StatsCollector::Finish() {
  for (const auto& [key, message] : newestWanted) stats.Add(LogMessageView(message));
  newestWanted.clear();
}

int ShowStats(const StatsOptions& options) {
  auto selection = MakeSelection(options.selection, options.output);
  if (!selection) return kUsage;
  const auto shown = MakeFormatOptions(options.output);
  if (!shown) return kUsage;
  StatsCollector collector(std::move(*selection), options.last);
  int exitCode = options.files.empty() ? CollectLive(options, collector) : kDone;
  for (const std::string& path : options.files) {
    const int code = CollectFile(path, collector);
    if (code != kDone && (exitCode == kDone || exitCode == kDamaged)) exitCode = code;
  }
  if (exitCode != kDone && exitCode != kDamaged && collector.Messages() == 0) return exitCode;
  if (collector.Damaged() > 0) {
    if (!options.quiet) {
      Say(std::to_string(collector.Damaged()) +
          (collector.Damaged() == 1 ? " message breaks" : " messages break") + " a rule of the format");
    }
    if (exitCode == kDone) exitCode = kDamaged;
  }
  collector.Finish();
  if (!WriteOut(options.json ? AsJson(collector, *shown) : AsText(options, collector, *shown)))
    return kOutputFailed;
  if (exitCode != kDone) return exitCode;
  return collector.Searches() && collector.Wanted().Count() == 0 ? kNothingMatched : kDone;
}

}  // namespace TamLogCtl
