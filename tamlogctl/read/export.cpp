#include "tamlogctl/read/export.h"

#include <algorithm>

#include "client/file/atomic_file.h"
#include "client/file/log_file_image.h"
#include "client/log/cursor.h"
#include "client/message/log_message_view.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/counted.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/read/log_input.h"
#include "tamlogctl/read/output_file.h"
#include "tamlogctl/read/reading_position.h"
#include "tamlogctl/select/log_end.h"
#include "tamlogctl/select/message_choice.h"

namespace TamLogCtl {

namespace {

using TamLogClient::AtomicFile;
using TamLogClient::LogMessageView;
using TamLogClient::MessageFormatter;
using TamLogClient::Status;

class Export {
 public:
  explicit Export(const ExportOptions& chosen) : options(chosen) {}

  int Run();

 private:
  int Read(ReadingPosition& position);
  void Choose(const MessageSelection& selection);
  int WriteText(MessageFormatter& formatter);
  int WriteLog();

  const ExportOptions& options;
  std::vector<LogInput> logs;
  std::vector<const LogMessage*> messages;  // to write, oldest first
  std::vector<std::size_t> places;          // their indices among all messages
  std::size_t matched = 0;
  std::uint32_t capacity = 1;
  int exitCode = kDone;
};

// Unless every file can be read nothing is written: the target would be mistaken for complete.
int Export::Read(ReadingPosition& position) {
  logs.reserve(std::max<std::size_t>(1, options.files.size()));
  if (options.files.empty()) logs.push_back(ReadLiveInput(options.timeoutMs, options.quiet));
  for (const std::string& file : options.files) logs.push_back(ReadFileInput(file, options.quiet));
  exitCode = WorstOf(logs);
  if (!HasOutput(exitCode)) return exitCode;
  for (const LogInput& log : logs) {
    const auto found = position.Beyond(log.snapshot);
    messages.insert(messages.end(), found.begin(), found.end());
    capacity = std::max(capacity, static_cast<std::uint32_t>(log.snapshot.slots.size()));
  }
  // An empty file would replace the target of an earlier run.
  if (exitCode == kDamaged && std::all_of(logs.begin(), logs.end(), [](const LogInput& log) {
        return log.snapshot.RingOrder().empty();
      }))
    return Refuse(kDamaged, options.target + ": not written, because no message could be read");
  SortByTime(messages);
  return kDone;
}

void Export::Choose(const MessageSelection& selection) {
  places = ChooseMessages(messages, selection, options.limit);
  matched = places.size();
  places = WithContext(places, messages.size(), options.before, options.after);
  std::reverse(places.begin(), places.end());
  for (std::size_t i = 0; i < places.size(); ++i) messages[i] = messages[places[i]];  // places rise
  messages.resize(places.size());
}

int Export::WriteText(MessageFormatter& formatter) {
  TamLogClient::RemoveLeftovers(options.target);
  AtomicFile file;
  if (const auto status = file.Open(options.target, options.force); status != Status::Ok)
    return ExplainTarget(options.target, status);
  Progress progress("exporting messages", messages.size());
  std::string pending;
  const bool gaps = (options.before > 0 || options.after > 0) && IsTextFormat(options);
  TamLogClient::TwinNumbers twins;
  if (formatter.ShowsCursors()) {
    for (const LogInput& log : logs) twins.Add(log.snapshot);
  }
  formatter.AppendHead(pending);
  bool good = true;
  for (std::size_t i = 0; good && i < messages.size(); ++i) {
    progress.Show(i);
    if (Interrupted()) return ExplainTarget(options.target, Status::Interrupted);
    if (gaps && i > 0 && places[i] > places[i - 1] + 1) pending += "--\n";
    formatter.Append(*messages[i], false, pending, twins.Of(messages[i]));
    if (pending.size() < kWriteSize) continue;
    good = file.Write(pending);
    pending.clear();
  }
  formatter.AppendTail(pending);
  file.Write(pending);
  const auto status = file.Commit();
  return status == Status::Ok ? kDone : ExplainTarget(options.target, status);
}

// Messages that break a rule of the format are left out: a server empties a log file that contains one.
int Export::WriteLog() {
  std::erase_if(messages, [](const LogMessage* message) { return LogMessageView(*message).Damaged(); });
  const auto most = std::max(capacity, static_cast<std::uint32_t>(messages.size()));
  const std::uint32_t slots = options.capacity > 0 ? options.capacity : most;
  if (messages.size() > slots) {
    return Refuse(kUsage, "--capacity " + std::to_string(slots) + ": " + std::to_string(messages.size()) +
                              " messages do not fit; choose fewer with -S or -s, or raise it");
  }
  const auto messageAt = [this](std::uint64_t index) { return *messages[index]; };
  return WriteLogTarget(options.target, messages.size(), messageAt, slots, options.force);
}

int Export::Run() {
  int refused = kUsage;
  // A log may replace itself with another capacity; a text in its place would end it.
  for (const std::string& file : options.files) {
    if (!options.asLog && TamLogClient::IsSameFile(file, options.target))
      return Refuse(kUsage, options.target + ": is the log that is read; give another name");
  }
  const auto selection = MakeSelection(options.selection, options.output, refused);
  auto formatter = selection ? MakeFileFormatter(options.output) : std::nullopt;
  auto position = formatter ? ReadingPosition::Make(options, refused) : std::nullopt;
  if (!position) return refused;
  if (const int code = Read(*position); code != kDone) return code;
  Choose(*selection);
  const std::size_t chosen = messages.size();
  DeferInterrupts();  // so that no part of a file is left
  const int code = options.asLog ? WriteLog() : WriteText(*formatter);
  if (code != kDone) return code;
  if (!options.quiet) Say(options.target + ": " + Counted(messages.size(), "message"));
  if (messages.size() < chosen)
    Say(options.target + ": without " + Counted(chosen - messages.size(), "message") +
        " that would make a server empty the file");
  if (logs.size() == 1) {
    position->ShowCursor(logs.front().snapshot);
    if (const int kept = position->Keep(logs.front().snapshot); kept != kDone) return kept;
  }
  return matched == 0 && !selection->Empty() ? WorseOf(exitCode, kNegative) : exitCode;
}

int RunExport(const ExportOptions& options) {
  Export run(options);
  return run.Run();
}

}  // namespace

int ExportMessages(const ExportOptions& options) {
  return RunWithEnd(options, RunExport);
}

}  // namespace TamLogCtl
