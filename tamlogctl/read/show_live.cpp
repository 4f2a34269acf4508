// show and follow on the log of a running server.

#include <vector>

#include "tamlogctl/base/console.h"
#include "tamlogctl/read/follow.h"
#include "tamlogctl/read/log_input.h"
#include "tamlogctl/read/printer.h"
#include "tamlogctl/read/reading_position.h"
#include "tamlogctl/read/show.h"
#include "tamlogctl/read/show_logs.h"
#include "tamlogctl/select/nothing_found.h"

namespace TamLogCtl {

int ShowLive(const ShowOptions& options) {
  int exitCode = kDone;
  auto printer = Printer::Make(options, exitCode);
  auto position = printer ? ReadingPosition::Make(options, exitCode) : std::nullopt;
  if (!position) return exitCode;
  DeferInterrupts();
  if (options.follow) return Follow(options, *printer, *position);
  const std::vector<LogInput> logs{
      ReadLiveInput(options.timeoutMs, options.quiet, NewestPart(options, *printer))};
  const bool empty = logs.front().exitCode == kDone && logs.front().snapshot.header.messageCount == 0;
  if (empty && !options.quiet && options.events == EventStyle::Text) Say("the log is empty");
  exitCode = PrintLogs(options, *printer, *position, logs);
  if (exitCode == kNegative && !options.quiet) SuggestSources(options.selection, {});
  return exitCode;
}

}  // namespace TamLogCtl
