#include <algorithm>
#include <limits>

#include "client/file/log_file_image.h"
#include "client/file/log_file_writer.h"
#include "client/message/log_message_view.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/live_log.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/read/merge.h"
#include "tamlogctl/read/reading_position.h"
#include "tamlogctl/select/message_choice.h"

namespace TamLogCtl {

namespace {

using TamLogClient::AtomicFile;
using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogClient::MessageFormatter;
using TamLogClient::MessageSelection;
using TamLogClient::Status;

class Export {
 public:
  explicit Export(const ExportOptions& chosen) : options(chosen) {}

  int Run();

 private:
  int Read(ReadingPosition& position);
  void Choose(const MessageSelection& selection);
  void Take(const std::string& name, const std::string& bytes);
  int WriteText(MessageFormatter& formatter);
  int WriteLog();

  const ExportOptions& options;
  std::vector<LogSnapshot> logs;
  std::vector<const LogMessage*> messages;  // those that are written, oldest first
  std::vector<std::size_t> places;          // of each among all
  std::size_t matched = 0;
  std::uint32_t capacity = 1;
  int exitCode = kDone;
};

void Export::Take(const std::string& name, const std::string& bytes) {
  const TamLogClient::LogFileImage image(bytes);
  LogSnapshot& log = logs.emplace_back();
  log.header = image.Header();
  log.slots.reserve(image.SlotsThere());
  for (std::uint64_t slot = 0; slot < image.SlotsThere(); ++slot) log.slots.push_back(image.Slot(slot));
  capacity = std::max(capacity, static_cast<std::uint32_t>(log.slots.size()));
  if (!log.HeaderIsSound()) {
    Say(name + ": is damaged; see: tamlogctl verify");
    exitCode = kDamaged;
  }
}

int Export::Read(ReadingPosition& position) {
  logs.reserve(std::max<std::size_t>(1, options.files.size()));
  std::string bytes;
  for (const std::string& file : options.files) {
    const Status status = TamLogClient::ReadFileBytes(file, bytes);
    if (status != Status::Ok) return Refuse(ExitCodeOf(status), FileProblem(file, status));
    Take(file, bytes);
  }
  if (options.files.empty()) {
    if (const int code = ReadLiveImage(options.timeoutMs, bytes); code != kDone) return code;
    Take("the running server's log", bytes);
  }
  for (const LogSnapshot& log : logs) {
    const auto order = OrderMessages(log);
    if (order.damaged > 0) exitCode = kDamaged;
    // What a log file leaves out is told at the end.
    if (order.damaged > 0 && !options.quiet && !options.asLog) {
      SayDamaged(options.files.empty() ? "the running server's log"
                                       : options.files[static_cast<std::size_t>(&log - logs.data())],
                 order.damaged);
    }
    const auto slots = logs.size() == 1 ? position.Beyond(log) : order.oldestFirst;
    for (const std::uint32_t slot : slots) messages.push_back(&log.slots[slot]);
  }
  std::stable_sort(messages.begin(), messages.end(), [](const LogMessage* left, const LogMessage* right) {
    return TimeKey(left->body) < TimeKey(right->body);
  });
  return kDone;
}

void Export::Choose(const MessageSelection& selection) {
  places = ChooseLast(messages, selection, options.last);
  matched = places.size();
  places = WithContext(places, messages.size(), options.before, options.after);
  std::reverse(places.begin(), places.end());
  for (std::size_t i = 0; i < places.size(); ++i) messages[i] = messages[places[i]];  // places rise
  messages.resize(places.size());
}

int Export::WriteText(MessageFormatter& formatter) {
  AtomicFile file;
  Status status = file.Open(options.target, options.force);
  Progress progress("exporting messages", messages.size());
  std::string pending;
  const bool gaps = (options.before > 0 || options.after > 0) && IsTextFormat(options);
  if (logs.size() == 1) formatter.SetLog(logs.front().header);
  formatter.AppendHead(pending);
  for (std::size_t i = 0; status == Status::Ok && i < messages.size(); ++i) {
    progress.Show(i);
    if (Interrupted()) return ExplainUnwritten(options.target, Status::SystemError);
    if (gaps && i > 0 && places[i] > places[i - 1] + 1) pending += "--\n";
    formatter.Append(*messages[i], false, pending);
    if (pending.size() < kWriteSize) continue;
    if (!file.Write(pending)) status = Status::SystemError;
    pending.clear();
  }
  formatter.AppendTail(pending);
  if (status == Status::Ok && !file.Write(pending)) status = Status::SystemError;
  if (status == Status::Ok) status = file.Commit();
  return status == Status::Ok ? kDone : ExplainUnwritten(options.target, status);
}

// Messages that break a rule cannot go into a log file: one of them costs a server the whole file.
int Export::WriteLog() {
  std::erase_if(messages, [](const LogMessage* message) { return LogMessageView(*message).Damaged(); });
  const auto most = std::max(capacity, static_cast<std::uint32_t>(messages.size()));
  const std::uint32_t slots = options.capacity > 0 ? options.capacity : most;
  if (messages.size() > slots) {
    return Refuse(kUsage, "--capacity " + std::to_string(slots) + ": " + std::to_string(messages.size()) +
                              " messages do not fit; choose fewer with -S or -s, or raise it");
  }
  Progress progress("writing slots", slots);
  const auto give = [this](std::uint64_t index) { return *messages[index]; };
  const auto goOn = [&progress](std::uint64_t slot) {
    progress.Show(slot);
    return !Interrupted();
  };
  const Status status =
      TamLogClient::WriteLogFile(options.target, messages.size(), give, slots, options.force, goOn);
  return status == Status::Ok ? kDone : ExplainUnwritten(options.target, status);
}

int Export::Run() {
  const auto selection = MakeSelection(options.selection, options.output);
  auto formatter = selection ? MakeFileFormatter(options.output) : std::nullopt;
  auto position = formatter ? ReadingPosition::Make(options) : std::nullopt;
  if (!position) return kUsage;
  if (const int code = Read(*position); code != kDone) return code;
  Choose(*selection);
  const std::size_t chosen = messages.size();
  DeferInterrupts();  // so that no half of a file is left
  const int code = options.asLog ? WriteLog() : WriteText(*formatter);
  if (code != kDone) return code;
  if (!options.quiet) Say(options.target + ": " + std::to_string(messages.size()) + " messages");
  if (messages.size() < chosen)
    Say(std::to_string(chosen - messages.size()) + " messages break a rule of the format and were left out");
  if (logs.size() == 1) {
    position->ShowCursor(logs.front());
    if (!position->Keep(logs.front())) return kOutputFailed;
  }
  return matched == 0 && !selection->Empty() ? WorseOf(exitCode, kNegative) : exitCode;
}

}  // namespace

int ExplainTarget(const std::string& target, Status status) {
  return RefuseTarget(target, status, "give another name, or --force to replace it");
}

int ExplainUnwritten(const std::string& target, Status status) {
  if (!Interrupted()) return ExplainTarget(target, status);
  return Refuse(kInterrupted, target + ": interrupted; nothing was written");
}

int ExportMessages(const ExportOptions& options) {
  Export run(options);
  return run.Run();
}

}  // namespace TamLogCtl
