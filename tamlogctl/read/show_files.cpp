// show on copied log files.

#include <optional>
#include <utility>
#include <vector>

#include "client/file/log_file_scan.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/plain_file.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/read/log_input.h"
#include "tamlogctl/read/printer.h"
#include "tamlogctl/read/reading_position.h"
#include "tamlogctl/read/show.h"
#include "tamlogctl/read/show_logs.h"
#include "tamlogctl/select/log_end.h"

namespace TamLogCtl {

namespace {

bool HasCursor(const ShowOptions& options) {
  return !options.cursorFile.empty() || !options.afterCursor.empty() || options.showCursor;
}

// Counts without holding the messages. Returns nothing when a file has to be read in the ordinary way.
std::optional<int> CountInFiles(const ShowOptions& options, Printer& printer) {
  int exitCode = kDone;
  for (const std::string& path : options.files) {
    const auto scanned =
        ScanFileInput(path, options.quiet, [&printer](const LogMessage& message) { printer.Count(message); });
    if (!scanned) return std::nullopt;
    exitCode = WorseOf(exitCode, scanned->exitCode);
  }
  return printer.Finish() ? EndOf(printer, exitCode) : kOutputFailed;
}

// Prints a file that holds its messages in time order, as nearly all do, without holding them. Returns
// nothing when the file has to be read in the ordinary way.
std::optional<int> PrintInOrder(const ShowOptions& options, Printer& printer) {
  const std::string& path = options.files.front();
  const PlainFile& file = PlainFileOf(path);
  TamLogClient::LogFileScan scan;
  if (!file.Readable() || !scan.Open(file.path)) return std::nullopt;
  auto busy = std::make_optional<Busy>("reading " + path);
  const auto survey = scan.Survey();
  busy.reset();
  if (!survey || !survey->inOrder || !IsSound(file.path, *survey)) return std::nullopt;
  int exitCode = WorseOf(JudgeMessages(path, survey->damaged, options.quiet), file.exitCode);
  Pager pager;
  if (!options.noPager) pager.Begin();
  TamLogClient::TwinCount twins;
  const bool whole = scan.ForEach([&](const LogMessage& message) {
    printer.Print(message, false, printer.ShowsCursors() ? twins.Next(message.body) : 1);
    return !printer.OutputFailed() && !printer.IsComplete();
  });
  if (!printer.Finish(pager)) return kOutputFailed;
  if (!whole) {
    Say(path + ": became shorter or unreadable while it was shown; its newest messages are missing");
    exitCode = kDamaged;
  }
  return EndOf(printer, exitCode);
}

int Show(const ShowOptions& options) {
  int exitCode = kDone;
  auto printer = Printer::Make(options, exitCode);
  auto position = printer ? ReadingPosition::Make(options, exitCode) : std::nullopt;
  if (!position) return exitCode;
  // A way that turns out to be impossible may have counted or matched some messages by then.
  auto trial = *printer;
  if (options.count && !HasCursor(options)) {
    if (const auto code = CountInFiles(options, trial)) return *code;
  } else if (options.files.size() == 1 && !options.limit.last && !options.reverse && !HasCursor(options)) {
    if (const auto code = PrintInOrder(options, trial)) return *code;
  }
  std::vector<LogInput> logs;
  logs.reserve(options.files.size());
  for (const std::string& path : options.files)
    logs.push_back(ReadFileInput(path, options.quiet, NewestPart(options, *printer)));
  return PrintLogs(options, *printer, *position, logs);
}

}  // namespace

int ShowFiles(const ShowOptions& options) {
  return RunWithEnd(options, Show);
}

}  // namespace TamLogCtl
