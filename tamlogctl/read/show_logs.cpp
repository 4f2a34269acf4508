#include "tamlogctl/read/show_logs.h"

#include "tamlogctl/base/console.h"
#include "tamlogctl/read/newest.h"
#include "tamlogctl/select/message_choice.h"

namespace TamLogCtl {

ReadPart NewestPart(const ShowOptions& options, const Printer& printer) {
  return [&](const ReadTail& read) { return ReadNewest(options, printer, read); };
}

int EndOf(const Printer& printer, int exitCode) {
  if (printer.ShowedNothing()) Say("no entries");
  return printer.NothingMatched() ? WorseOf(exitCode, kNegative) : exitCode;
}

int PrintLogs(const ShowOptions& options, Printer& printer, ReadingPosition& position,
              const std::vector<LogInput>& logs) {
  const int exitCode = WorstOf(logs);
  if (!AnyRead(logs)) return exitCode;  // the output of an empty log would mislead
  std::vector<const LogMessage*> messages;
  for (const LogInput& log : logs) {
    const auto beyond = position.Beyond(log.snapshot);
    messages.insert(messages.end(), beyond.begin(), beyond.end());
  }
  if (logs.size() > 1) SortByTime(messages);
  const auto& log = logs.front().snapshot;
  for (const LogInput& each : logs) printer.AddLog(each.snapshot);
  Pager pager;
  if (!options.noPager && !options.count) pager.Begin();
  printer.PrintLast(messages);
  if (!printer.Finish(pager)) return kOutputFailed;
  if (Interrupted()) return kInterrupted;
  if (logs.size() == 1) {
    position.ShowCursor(log);
    if (const int code = position.Keep(log); code != kDone) return code;
  }
  return EndOf(printer, exitCode);
}

}  // namespace TamLogCtl
