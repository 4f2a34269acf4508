#include "tamlogctl/select/log_end.h"

#include <cstddef>

#include "client/file/log_file_reader.h"
#include "client/file/log_file_tail.h"
#include "client/log/log_tail.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/plain_file.h"
#include "tamlogctl/base/time_bound.h"

namespace TamLogCtl {

using TamLogClient::TimeWords;

namespace {

void TakeLatest(const TimeWords& words, std::optional<TimeWords>& latest) {
  // The words of real times compare like the times.
  if (TamLogClient::IsRealTime(words) && (!latest || words > *latest)) latest = words;
}

}  // namespace

std::optional<TimeWords> EndOfLog(const std::string& path) {
  constexpr std::size_t kEnough = 64;
  std::optional<TimeWords> latest;
  const PlainFile& file = PlainFileOf(path);
  if (!file.Readable()) return latest;
  TamLogClient::LogTail tail;
  if (TamLogClient::ReadLogFileTail(file.path, kEnough, tail) && CertainFrom(tail)) {
    for (const LogMessage& message : tail.messages) TakeLatest(TamLogClient::WordsOf(message.body), latest);
  }
  if (latest) return latest;
  // Damaged, out of order, or with impossible dates at its end.
  const auto contents = TamLogClient::ReadLogFile(file.path);
  for (const std::uint32_t slot : contents.snapshot.RingOrder()) {
    TakeLatest(TamLogClient::WordsOf(contents.snapshot.slots[slot].body), latest);
  }
  return latest;
}

std::optional<TimeWords> EndOfLogs(const std::vector<std::string>& paths) {
  std::optional<TimeWords> latest;
  for (const std::string& path : paths) {
    if (const auto end = EndOfLog(path)) TakeLatest(*end, latest);
  }
  return latest;
}

void SuggestEnd(const SelectionOptions& options, const OutputOptions& output,
                const std::optional<TimeWords>& end) {
  if (options.relativeToEnd || options.since.empty() || !end) return;
  const auto offset = LocalOffsetOf(output);
  const auto now = ParseBound(options.since, ClockOfNow(offset));
  const auto atEnd = ParseBound(options.since, {*end, offset});
  if (!now || !atEnd || *end >= *now) return;
  std::string text = "the log ends at ";
  TamLogClient::AppendTime(*end, ' ', text);
  Say(now == atEnd ? text + ", before -S '" + options.since + "'"
                   : text + "; to count '" + options.since + "' from there add --relative-to end");
}

}  // namespace TamLogCtl
