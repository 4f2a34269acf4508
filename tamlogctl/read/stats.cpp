#include "tamlogctl/read/stats.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/read/log_input.h"
#include "tamlogctl/read/paged_text.h"
#include "tamlogctl/read/stats_report.h"
#include "tamlogctl/select/log_end.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogMessageView;
using TamLogClient::TimeWords;

void Collect(const LogInput& input, StatsCollector& collector) {
  if (!WasRead(input)) return;
  collector.AddRing(input.snapshot.header);
  for (const std::uint32_t slot : input.snapshot.RingOrder()) collector.Add(input.snapshot.slots[slot]);
}

// A file without defects is counted without holding its messages.
int CollectFile(const std::string& path, bool quiet, StatsCollector& collector) {
  StatsCollector trial = collector;  // a scan that fails may have counted some messages by then
  const auto scanned =
      ScanFileInput(path, quiet, [&trial](const LogMessage& message) { trial.Add(message); });
  if (scanned) {
    trial.AddRing(scanned->header);
    collector = std::move(trial);
    return scanned->exitCode;
  }
  const LogInput input = ReadFileInput(path, quiet);
  Collect(input, collector);
  return input.exitCode;
}

int CollectLive(const StatsOptions& options, StatsCollector& collector) {
  const LogInput input = ReadLiveInput(options.timeoutMs, options.quiet);
  Collect(input, collector);
  return input.exitCode;
}

}  // namespace

void StatsCollector::AddRing(const LogFileHeader& header) {
  if (header.maxMessages > 0) capacity += static_cast<std::uint64_t>(header.maxMessages);
  full = header.messageCount >= header.maxMessages;
}

void StatsCollector::Add(const LogMessage& message) {
  const LogMessageView view(message);
  ++messages;
  const TimeWords words = TamLogClient::WordsOf(view.Body());
  if (TamLogClient::IsRealTime(words)) {
    if (!oldest || words < *oldest) oldest = words;
    if (!newest || words > *newest) newest = words;
  }
  if (!selection.Wants(view)) return;
  if (!limit.first && !limit.last) return stats.Add(view);
  limited.emplace(view.Key(), message);
  if (limit.Of(limited.size()) < limited.size())
    limited.erase(limit.first ? std::prev(limited.end()) : limited.begin());
}

void StatsCollector::Finish() {
  for (const auto& [key, message] : limited) stats.Add(LogMessageView(message));
  limited.clear();
}

namespace {

int Stats(const StatsOptions& options) {
  int refused = kDone;
  auto selection = MakeSelection(options.selection, options.output, refused);
  if (!selection) return refused;
  const auto shown = MakeFormatOptions(options.output);
  if (!shown) return kUsage;
  StatsCollector collector(std::move(*selection), options.limit);
  std::vector<int> codes;
  if (options.files.empty()) codes.push_back(CollectLive(options, collector));
  for (const std::string& path : options.files) codes.push_back(CollectFile(path, options.quiet, collector));
  const int exitCode = std::accumulate(codes.begin(), codes.end(), kDone, WorseOf);
  const bool nothingRead = exitCode != kDone && collector.Capacity() == 0 && collector.Messages() == 0;
  if (nothingRead || std::none_of(codes.begin(), codes.end(), HasOutput)) return exitCode;
  collector.Finish();
  PagedText output(!options.noPager);
  const std::string text =
      options.json ? StatsJson(collector, *shown) : StatsText(options, collector, *shown);
  if (!output.Write(text) || !output.Finish()) return kOutputFailed;
  return collector.Searches() && collector.Wanted().Count() == 0 ? WorseOf(exitCode, kNegative) : exitCode;
}

}  // namespace

int ShowStats(const StatsOptions& options) {
  return RunWithEnd(options, Stats);
}

}  // namespace TamLogCtl
