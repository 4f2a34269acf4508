#include <algorithm>
#include <optional>
#include <vector>

#include "client/file/log_file_reader.h"
#include "client/file/log_file_scan.h"
#include "client/file/log_file_tail.h"
#include "client/log/log_tail.h"
#include "client/message/log_message_view.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/read/newest.h"
#include "tamlogctl/read/printer.h"
#include "tamlogctl/read/reading_position.h"
#include "tamlogctl/read/show.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogFileContents;
using TamLogClient::LogFileScan;
using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

// What a log file gave.
struct FileLog {
  LogSnapshot snapshot;
  int exitCode = kDone;  // that the file alone would give
};

std::size_t CountDamaged(const LogSnapshot& snapshot) {
  std::size_t damaged = 0;
  for (const std::uint32_t slot : snapshot.RingOrder()) {
    if (LogMessageView(snapshot.slots[slot]).Damaged()) ++damaged;
  }
  return damaged;
}

FileLog ReadOne(const ShowOptions& options, const Printer& printer, const std::string& path) {
  FileLog log;
  auto busy = std::make_optional<Busy>("reading " + path);
  const auto readTail = [&path](std::size_t count, TamLogClient::LogTail& tail) {
    return TamLogClient::ReadLogFileTail(path, count, tail);
  };
  if (auto newest = ReadNewest(options, printer, readTail)) {
    log.snapshot = std::move(*newest);
  } else {
    LogFileContents contents = TamLogClient::ReadLogFile(path);
    busy.reset();
    if (contents.status != Status::Ok) {
      Say(FileProblem(path, contents.status, contents.remark));
      log.exitCode = ExitCodeOf(contents.status);
    }
    log.snapshot = std::move(contents.snapshot);
  }
  const std::size_t damaged = CountDamaged(log.snapshot);
  if (damaged > 0) {
    SayDamaged(path, damaged);
    log.exitCode = kDamaged;
  }
  return log;
}

// Counts without holding the messages. Nothing when a file has to be read in the ordinary way.
std::optional<int> CountInFiles(const ShowOptions& options, Printer& printer) {
  int exitCode = kDone;
  for (const std::string& path : options.files) {
    std::size_t damaged = 0;
    const Busy busy("counting in " + path);
    LogFileScan scan;
    const auto count = [&](const LogMessage& message) {
      if (LogMessageView(message).Damaged()) ++damaged;
      printer.Count(message);
      return true;
    };
    if (!scan.Open(path) || !scan.ForEach(count)) return std::nullopt;
    if (damaged > 0) {
      SayDamaged(path, damaged);
      exitCode = kDamaged;
    }
  }
  return exitCode;
}

bool IsWholeFile(const ShowOptions& options) {
  return options.files.size() == 1 && !options.last && !options.reverse && !options.count &&
         options.cursorFile.empty() && options.afterCursor.empty() && !options.showCursor;
}

int End(const Printer& printer, int exitCode) {
  return printer.Searches() && printer.Matched() == 0 ? WorseOf(exitCode, kNegative) : exitCode;
}

// Prints a file that holds its messages in time order, as nearly all do, without holding them. Nothing when
// the file has to be read in the ordinary way.
std::optional<int> PrintInOrder(const ShowOptions& options, Printer& printer) {
  const std::string& path = options.files.front();
  LogFileScan scan;
  if (!scan.Open(path)) return std::nullopt;
  auto busy = std::make_optional<Busy>("reading " + path);
  const auto survey = scan.Survey();
  busy.reset();
  if (!survey || !survey->inTimeOrder) return std::nullopt;
  if (survey->damaged > 0) SayDamaged(path, survey->damaged);
  int exitCode = survey->damaged > 0 ? kDamaged : kDone;
  Pager pager;
  if (!options.noPager) pager.Begin();
  printer.SetLog(scan.Header());
  const bool whole = scan.ForEach([&printer](const LogMessage& message) {
    printer.Print(message, false);
    return !printer.OutputFailed();
  });
  const bool written = printer.Finish();
  const bool paged = pager.Active();
  if (!pager.End() || (!written && !paged)) return kOutputFailed;
  if (!whole) {
    Say(path + ": it became shorter, or unreadable, while it was shown; its newest messages are missing");
    exitCode = kDamaged;
  }
  return End(printer, exitCode);
}

int PrintFiles(const ShowOptions& options, Printer& printer, ReadingPosition& position) {
  std::vector<FileLog> logs;
  std::vector<const LogMessage*> messages;
  int exitCode = kDone;
  bool someRead = false;
  logs.reserve(options.files.size());
  for (const std::string& path : options.files) {
    logs.push_back(ReadOne(options, printer, path));
    const LogSnapshot& snapshot = logs.back().snapshot;
    exitCode = WorseOf(exitCode, logs.back().exitCode);
    someRead = someRead || HasOutput(logs.back().exitCode);
    for (const std::uint32_t slot : position.Beyond(snapshot)) messages.push_back(&snapshot.slots[slot]);
  }
  if (!someRead) return exitCode;  // no output is better than that of an empty log
  if (logs.size() > 1) {
    std::stable_sort(messages.begin(), messages.end(), [](const LogMessage* left, const LogMessage* right) {
      return TimeKey(left->body) < TimeKey(right->body);
    });
  }
  // Of several logs no cursor can be used.
  if (logs.size() == 1) printer.SetLog(logs.front().snapshot.header);
  Pager pager;
  if (!options.noPager && !options.count) pager.Begin();
  printer.PrintLast(messages);
  const bool written = printer.Finish();
  const bool paged = pager.Active();
  if (!pager.End() || (!written && !paged)) return kOutputFailed;
  // With a cursor there is one file.
  const LogSnapshot& last = logs.back().snapshot;
  position.ShowCursor(last);
  if (HasOutput(exitCode) && !position.Keep(last)) return kOutputFailed;
  return End(printer, exitCode);
}

}  // namespace

int ShowFiles(const ShowOptions& options) {
  auto printer = Printer::Make(options);
  auto position = printer ? ReadingPosition::Make(options) : std::nullopt;
  if (!printer || !position) return kUsage;
  // For the ways that may turn out to be none: what it has matched until then is not counted twice.
  auto trial = Printer::Make(options);
  if (options.count && options.cursorFile.empty() && options.afterCursor.empty() && !options.showCursor) {
    const auto exitCode = CountInFiles(options, *trial);
    if (exitCode) return trial->Finish() ? End(*trial, *exitCode) : kOutputFailed;
  } else if (IsWholeFile(options)) {
    if (const auto exitCode = PrintInOrder(options, *trial)) return *exitCode;
  }
  return PrintFiles(options, *printer, *position);
}

}  // namespace TamLogCtl
