// export --follow: messages as they arrive, into a file that rotates.

#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "client/file/file_path.h"
#include "client/format/message_formatter.h"
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

using TamLogClient::LogMessageView;
using TamLogClient::MessageFormatter;
using TamLogClient::Status;

std::int64_t LocalMs() {
  return TamLogClient::MillisecondsSince1970(TamLogClient::LocalNow(), 0);
}

RotatingFileOptions FileOptions(const ExportOptions& options, const MessageFormatter& formatter,
                                bool resumes) {
  RotatingFileOptions file;
  file.target = options.target;
  file.replace = !resumes;
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

class ExportTarget : public FollowTarget {
 public:
  ExportTarget(const ExportOptions& chosen, MessageFormatter format, MessageSelection wanted, bool resumes)
      : options(chosen),
        formatter(std::move(format)),
        selection(std::move(wanted)),
        file(FileOptions(chosen, formatter, resumes)) {}

  void SetLog(const LogFileHeader& header) override { formatter.SetLog(header); }

  // The target is opened no earlier than the log can be read.
  void PrintLast(const std::vector<const LogMessage*>& oldestFirst) override {
    for (const LogMessage* const message : oldestFirst) Print(*message, false);
  }
  void Print(const LogMessage& message, bool late) override;
  bool Flush() override;
  bool Finish() override;
  bool OutputFailed() const override { return failure != Status::Ok; }
  bool NothingMatched() const override { return !selection.Empty() && count == 0; }

  Status Failure() const { return failure; }

 private:
  bool Open();
  bool Fail(Status status);

  const ExportOptions& options;
  MessageFormatter formatter;
  MessageSelection selection;
  RotatingFile file;
  std::string text;
  std::uint64_t count = 0;
  Status failure = Status::Ok;
  bool open = false;
  bool blockedReported = false;
};

bool ExportTarget::Fail(Status status) {
  if (failure != Status::Ok) return false;
  failure = status;
  ExplainTarget(options.target, status);
  return false;
}

bool ExportTarget::Open() {
  if (open || failure != Status::Ok) return open;
  const Status status = file.Open(LocalMs());
  open = status == Status::Ok;
  return open || Fail(status);
}

void ExportTarget::Print(const LogMessage& message, bool late) {
  if (!selection.Wants(LogMessageView(message)) || !Open()) return;
  text.clear();
  formatter.Append(message, late, text);
  ++count;
  if (!file.Append(text, LocalMs())) Fail(Status::SystemError);
}

bool ExportTarget::Flush() {
  if (!Open()) return false;
  if (!file.Flush(LocalMs())) return Fail(Status::SystemError);
  if (file.RotationBlocked() && !std::exchange(blockedReported, true)) {
    Say(options.target +
        ": cannot be rotated while another program has it or the oldest of its files open; still appending");
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

// Returns whether the target holds something that an unknown run or another program has written.
bool HoldsSomething(const std::string& target) {
  std::error_code error;
  const auto bytes = std::filesystem::file_size(TamLogClient::PathOf(target), error);
  return !error && bytes > 0;
}

}  // namespace

int FollowExport(const ExportOptions& options) {
  const ShowOptions follow = FollowingOf(options);
  int refused = kUsage;
  auto selection = MakeSelection(options.selection, options.output, refused);
  auto formatter = selection ? MakeFileFormatter(options.output) : std::nullopt;
  auto position = formatter ? ReadingPosition::Make(follow, refused) : std::nullopt;
  if (!position) return refused;
  const bool resumes = position->IsGiven();
  if (!resumes && !options.force && HoldsSomething(options.target))
    return Refuse(kUsage,
                  options.target +
                      ": already exists; give the --cursor-file of the run that wrote it, another name, or "
                      "--force to replace it");
  DeferInterrupts();
  ExportTarget target(options, std::move(*formatter), std::move(*selection), resumes);
  const int code = Follow(follow, target, *position);
  const bool outside = target.Failure() == Status::AccessDenied || target.Failure() == Status::NotAFile;
  return outside ? ExitCodeOf(target.Failure()) : code;
}

}  // namespace TamLogCtl
