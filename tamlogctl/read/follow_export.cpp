// export --follow: messages as they come, into files that are put aside one after the other.

#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "client/file/file_path.h"
#include "client/format/message_formatter.h"
#include "client/message/local_time.h"
#include "client/message/time_zone.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/read/follow.h"
#include "tamlogctl/read/merge.h"
#include "tamlogctl/read/reading_position.h"
#include "tamlogctl/read/rotating_file.h"
#include "tamlogctl/select/message_selection.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogMessageView;
using TamLogClient::MessageFormatter;
using TamLogClient::MessageSelection;
using TamLogClient::Status;

std::int64_t LocalMs() {
  return TamLogClient::MillisecondsSince1970(TamLogClient::LocalNow(), 0);
}

RotatingFileOptions FileOptions(const ExportOptions& options, const MessageFormatter& formatter,
                                bool goesOn) {
  RotatingFileOptions file;
  file.target = options.target;
  file.replace = !goesOn;
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
  ExportTarget(const ExportOptions& chosen, MessageFormatter format, MessageSelection wanted, bool goesOn)
      : options(chosen),
        formatter(std::move(format)),
        selection(std::move(wanted)),
        file(FileOptions(chosen, formatter, goesOn)) {}

  void SetLog(const LogFileHeader& header) override { formatter.SetLog(header); }

  // The target is not touched before there is a log to read.
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
  bool heldUpTold = false;
};

bool ExportTarget::Fail(Status status) {
  if (failure != Status::Ok) return false;
  failure = status;
  if (status == Status::BadValue) {
    Say(options.target + ": is not a file of its own that could be put aside; give another name");
  } else {
    ExplainTarget(options.target, status);
  }
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
  if (file.HeldUp() && !std::exchange(heldUpTold, true)) {
    Say(options.target +
        ": cannot be put aside while another program has it or the oldest of its files open; it grows on");
  }
  if (!file.HeldUp()) heldUpTold = false;
  return true;
}

bool ExportTarget::Finish() {
  if (!Flush()) return false;
  if (!options.quiet) {
    Say(options.target + ": " + std::to_string(count) + " messages in " +
        std::to_string(file.FilesPutAside() + 1) + (file.FilesPutAside() == 0 ? " file" : " files"));
  }
  return true;
}

// The part of following's options that has a meaning here.
ShowOptions FollowingOf(const ExportOptions& options) {
  ShowOptions follow;
  static_cast<ReadingOptions&>(follow) = options;
  follow.follow = true;
  follow.intervalMs = options.intervalMs;
  follow.forSeconds = options.forSeconds;
  follow.ordered = options.ordered;
  return follow;
}

// Something that an earlier run, which is not known, or somebody else has written.
bool HoldsSomething(const std::string& target) {
  std::error_code error;
  const std::filesystem::path path = TamLogClient::PathOf(target);
  if (std::filesystem::is_directory(path, error)) return true;
  const auto bytes = std::filesystem::file_size(path, error);
  return !error && bytes > 0;
}

}  // namespace

int FollowExport(const ExportOptions& options) {
  const ShowOptions follow = FollowingOf(options);
  auto selection = MakeSelection(options.selection, options.output);
  auto formatter = selection ? MakeFileFormatter(options.output) : std::nullopt;
  auto position = formatter ? ReadingPosition::Make(follow) : std::nullopt;
  if (!position) return kUsage;
  const bool goesOn = position->IsGiven();
  if (!goesOn && !options.force && HoldsSomething(options.target))
    return Refuse(kUsage,
                  options.target +
                      ": is there already; give the --cursor-file of the run that wrote it, another name, or "
                      "--force to replace it");
  DeferInterrupts();
  ExportTarget target(options, std::move(*formatter), std::move(*selection), goesOn);
  const int code = Follow(follow, target, *position);
  const bool outside = target.Failure() == Status::AccessDenied || target.Failure() == Status::BadValue;
  return outside ? ExitCodeOf(target.Failure()) : code;
}

}  // namespace TamLogCtl
