// export --follow: messages as they arrive, into a file that rotates.

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "client/file/file_path.h"
#include "client/format/message_formatter.h"
#include "client/log/cursor.h"
#include "client/message/local_time.h"
#include "client/message/time_zone.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/counted.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/read/export.h"
#include "tamlogctl/read/follow.h"
#include "tamlogctl/read/output_file.h"
#include "tamlogctl/read/reading_position.h"
#include "tamlogctl/read/rotating_file.h"
#include "tamlogctl/select/message_selection.h"

namespace TamLogCtl {

namespace {

using TamLogClient::FileStatus;
using TamLogClient::LogMessageView;
using TamLogClient::MessageFormatter;
using TamLogClient::Status;

std::int64_t LocalMs() {
  return TamLogClient::MillisecondsSince1970(TamLogClient::LocalNow(), 0);
}

RotatingFileOptions FileOptions(const ExportOptions& options, const MessageFormatter& formatter,
                                ReadingPosition& position) {
  RotatingFileOptions file;
  file.target = options.target;
  file.replace = !position.IsGiven();
  file.placeMoves = [&position](const FilePlace& place) { return position.KeepPlace(place) == kDone; };
  file.limits = options.rotation;
  formatter.AppendHead(file.head);
  if (options.output.format == "raw") {
    file.ending.clear();
    file.unit = sizeof(LogMessage);
  } else if (options.output.format == "export") {
    file.ending = "\n\n";
  }
  return file;
}

// Returns whether the target holds something that an unknown run or another program has written.
bool HoldsSomething(const std::string& target) {
  std::error_code error;
  const auto bytes = std::filesystem::file_size(TamLogClient::PathOf(target), error);
  return !error && bytes > 0;
}

class ExportTarget : public FollowTarget {
 public:
  ExportTarget(const ExportOptions& chosen, MessageFormatter format, MessageSelection wanted,
               ReadingPosition& from)
      : options(chosen),
        formatter(std::move(format)),
        selection(std::move(wanted)),
        position(from),
        file(FileOptions(chosen, formatter, from)) {}

  bool ShowsCursors() const override { return formatter.ShowsCursors(); }

  // The target is opened no earlier than the log can be read.
  void PrintLast(const std::vector<const LogMessage*>& oldestFirst,
                 const TamLogClient::LogSnapshot& snapshot) override;
  void Print(const LogMessage& message, bool late, std::uint32_t twin) override;
  void Gap() override { gap = true; }
  bool Flush() override;
  bool Finish() override;
  std::optional<FilePlace> Note() override;
  bool OutputFailed() const override { return exitCode != kDone; }
  bool NothingMatched() const override { return !selection.Empty() && count == 0; }

  // Returns kDone unless the output has failed.
  int ExitCode() const { return exitCode; }

 private:
  bool Open(const LogMessage* first, std::uint32_t twin);
  FileStatus CutBack(const FilePlace& place, const LogMessage* first, std::uint32_t twin);
  bool CanBeWrittenAgain(const FilePlace& place, const LogMessage* first, std::uint32_t twin) const;
  bool Fail(const FileStatus& status);

  const ExportOptions& options;
  MessageFormatter formatter;
  MessageSelection selection;
  ReadingPosition& position;
  RotatingFile file;
  std::string text;
  std::uint64_t count = 0;
  int exitCode = kDone;
  bool open = false;
  bool gap = false;
  bool blockedReported = false;
};

bool ExportTarget::Fail(const FileStatus& status) {
  if (exitCode == kDone) exitCode = ExplainTarget(options.target, status);
  return false;
}

// An earlier run that was killed had written more than it noted. That is removed and written again: then
// every message is there once. Messages that the log no longer has cannot be written again, so they stay.
FileStatus ExportTarget::CutBack(const FilePlace& place, const LogMessage* first, std::uint32_t twin) {
  if (!CanBeWrittenAgain(place, first, twin)) {
    Say(options.target +
        ": the log no longer has all that the last run wrote at its end; it stays, and messages may be there "
        "twice");
    return Status::Ok;
  }
  CutResult result = CutResult::Nothing;
  FileStatus status = file.CutBack(place, result);
  if (status != Status::Ok) return status;
  if (result == CutResult::Other && HoldsSomething(options.target))
    Say(options.target + ": is not the file of the last run; messages may be written twice");
  if (result == CutResult::Shorter)
    Say(options.target + ": is shorter than the last run left it; messages are missing there");
  return Status::Ok;
}

bool ExportTarget::CanBeWrittenAgain(const FilePlace& place, const LogMessage* first,
                                     std::uint32_t twin) const {
  if (!file.GoesOn(place)) return true;
  // A run that was killed within its first second has noted no messages, or those of an empty log, after
  // which a loss is always possible: then only the message that it began with shows what is gone.
  const auto& memory = position.Memory();
  const bool noted = memory && memory->header.messageCount != 0;
  if (gap && noted) return false;
  if (first == nullptr) return options.ordered;  // which holds messages back
  if (noted) return true;
  MessageFormatter trial = formatter;
  std::string begin;
  if (place.length == 0) trial.AppendHead(begin);
  trial.Append(*first, false, begin, twin);
  return file.GoesOnWith(place, begin);
}

bool ExportTarget::Open(const LogMessage* first, std::uint32_t twin) {
  if (open || exitCode != kDone) return open;
  if (position.Place()) {
    if (const FileStatus cut = CutBack(*position.Place(), first, twin); cut != Status::Ok) return Fail(cut);
  }
  if (const FileStatus status = file.Open(LocalMs()); status != Status::Ok) return Fail(status);
  open = true;
  const auto place = Note();
  if (exitCode == kDone) exitCode = position.KeepPlace(place);
  return exitCode == kDone;
}

std::optional<FilePlace> ExportTarget::Note() {
  const auto place = options.cursorFile.empty() ? std::nullopt : file.Note();
  if (file.Failed()) Fail(file.Failure());
  return place;
}

void ExportTarget::PrintLast(const std::vector<const LogMessage*>& oldestFirst,
                             const TamLogClient::LogSnapshot& snapshot) {
  TamLogClient::TwinNumbers twins;
  if (ShowsCursors()) twins.Add(snapshot);
  for (const LogMessage* const message : oldestFirst) Print(*message, false, twins.Of(message));
}

void ExportTarget::Print(const LogMessage& message, bool late, std::uint32_t twin) {
  if (!selection.Wants(LogMessageView(message)) || !Open(&message, twin)) return;
  text.clear();
  formatter.Append(message, late, text, twin);
  ++count;
  if (!file.Append(text, LocalMs())) Fail(file.Failure());
}

bool ExportTarget::Flush() {
  if (!Open(nullptr, 1)) return false;
  if (!file.Flush(LocalMs())) return Fail(file.Failure());
  if (file.RotationBlocked() && !std::exchange(blockedReported, true)) {
    Say(options.target + ": cannot be rotated; still appending (" + file.Blocker() + ")");
  }
  if (!file.RotationBlocked()) blockedReported = false;
  return true;
}

bool ExportTarget::Finish() {
  if (!Flush()) return false;
  if (!options.quiet) {
    Say(options.target + ": " + Counted(count, "message") + " in " +
        Counted(file.RotatedFiles() + 1, "file"));
  }
  return true;
}

// The options of following that export has.
ShowOptions FollowingOf(const ExportOptions& options) {
  ShowOptions follow;
  static_cast<ReadingOptions&>(follow) = options;
  follow.follow = true;
  follow.intervalMs = options.intervalMs;
  follow.forSeconds = options.forSeconds;
  follow.ordered = options.ordered;
  return follow;
}

}  // namespace

int FollowExport(const ExportOptions& options) {
  const ShowOptions follow = FollowingOf(options);
  int refused = kUsage;
  auto selection = MakeSelection(options.selection, options.output, refused);
  auto formatter = selection ? MakeFileFormatter(options.output) : std::nullopt;
  auto position = formatter ? ReadingPosition::Make(follow, refused) : std::nullopt;
  if (!position) return refused;
  if (!position->IsGiven() && !options.force && HoldsSomething(options.target))
    return Refuse(kUsage,
                  options.target +
                      ": already exists; give the --cursor-file of the run that wrote it, another name, or "
                      "--force to replace it");
  DeferInterrupts();
  ExportTarget target(options, std::move(*formatter), std::move(*selection), *position);
  const int code = Follow(follow, target, *position);
  return target.ExitCode() != kDone ? target.ExitCode() : code;
}

}  // namespace TamLogCtl
