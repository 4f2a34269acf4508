#include <cstring>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/file/file_path.h"
#include "client/format/tsv_text.h"
#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/message/local_time.h"
#include "client/message/log_message_view.h"
#include "client/message/message_body.h"
#include "client/message/text_split.h"
#include "client/message/time_text.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/base/wait.h"
#include "tamlogctl/server/filter_text.h"
#include "tamlogctl/server/live_server.h"
#include "tamlogctl/server/send.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::MessageDraft;
using TamLogClient::Status;

constexpr std::size_t kLongestField = kTextSize - 1;

class Sender {
 public:
  explicit Sender(const SendOptions& chosen)
      : options(chosen), client({kRequestPipeName, chosen.timeoutMs}) {}

  int Run();

 private:
  int SendOne();
  int SendLines(const std::function<bool(std::string&)>& next);
  int SendLine(const std::string& line, const std::string& where);
  int SendDraft(const MessageDraft& draft, const std::string& where);
  int SendPieces(const MessageDraft& draft, const std::string& where);
  int Submit(const MessageDraft& draft, std::string_view text, const std::string& where);
  int Confirm(const LogMessageBody& message);
  bool Find(const LogMessageBody& message) const;
  bool IsDropped(const LogMessageBody& message);
  std::optional<MessageDraft> DraftOf(const std::string& line, std::string& problem);

  const SendOptions& options;
  LogClient client;
  std::optional<TamLogClient::TimeWords> time;
  std::uint32_t sent = 0;
  TamLogClient::LogSnapshot snapshot;  // of --confirm
};

int Sender::Run() {
  if (options.confirm) DeferInterrupts();
  if (!options.time.empty()) {
    time = TamLogClient::ParseTime(options.time);
    if (!time) return Refuse(kUsage, "--time '" + options.time + "': expected YYYY-MM-DD HH:MM:SS.mmm");
  }
  if (options.hasArgument && options.input.empty()) return SendLine(options.argument, "");
  if (!options.hasArgument) {
    if (StdinIsTerminal()) Say("reading messages from standard input, one on each line");
    return SendLines(ReadLine);
  }
  std::ifstream file;
  if (const auto status = TamLogClient::OpenForReading(options.argument, file); status != Status::Ok)
    return Refuse(ExitCodeOf(status), FileProblem(options.argument, status));
  return SendLines([&file](std::string& line) { return ReadFileLine(file, line); });
}

int Sender::SendLines(const std::function<bool(std::string&)>& next) {
  std::string line;
  int worst = kDone;
  Progress progress("lines sent:");
  for (std::uint64_t number = 1; next(line); ++number) {
    progress.Show(number);
    const int exitCode = SendLine(line, "line " + std::to_string(number) + ": ");
    worst = WorseOf(worst, exitCode);
    // After a negative answer of --confirm the other lines are still sent.
    if (exitCode == kDone || exitCode == kNegative) continue;
    return Refuse(exitCode, std::to_string(sent) + " messages were sent before it");
  }
  return worst;
}

std::optional<MessageDraft> Sender::DraftOf(const std::string& line, std::string& problem) {
  if (options.input == "tsv") return TamLogClient::ParseTsvLine(line, problem);
  MessageDraft draft;
  TamLogClient::SetTime(draft.body, time ? *time : TamLogClient::LocalNow());
  draft.body.type = options.type;
  draft.source = options.source;
  draft.text = line;
  return draft;
}

int Sender::SendLine(const std::string& line, const std::string& where) {
  std::string problem;
  const auto draft = DraftOf(line, problem);
  return draft ? SendDraft(*draft, where) : Refuse(kUsage, where + problem);
}

int Sender::SendDraft(const MessageDraft& draft, const std::string& where) {
  if (draft.source.size() > kLongestField) {
    return Refuse(kUsage, where + "the source has " + std::to_string(draft.source.size()) +
                              " bytes, 256 are allowed; shorten it");
  }
  if (draft.text.find('\0') != std::string::npos || draft.source.find('\0') != std::string::npos) {
    return Refuse(kUsage,
                  where + "a message cannot contain a zero byte; remove it, for example with: tr -d '\\0'");
  }
  if (draft.text.size() <= kLongestField) return Submit(draft, draft.text, where);
  switch (options.longText) {
    case LongText::Truncate:
      return Submit(draft, TamLogClient::TruncateText(draft.text, kLongestField), where);
    case LongText::Split:
      return SendPieces(draft, where);
    case LongText::Refuse:
      break;
  }
  return Refuse(kUsage, where + "the text has " + std::to_string(draft.text.size()) +
                            " bytes, 256 are allowed; add --truncate or --split");
}

int Sender::SendPieces(const MessageDraft& draft, const std::string& where) {
  for (const std::string& piece : TamLogClient::SplitText(draft.text, kLongestField)) {
    if (const int exitCode = Submit(draft, piece, where); exitCode != kDone) return exitCode;
  }
  return kDone;
}

int Sender::Submit(const MessageDraft& draft, std::string_view text, const std::string& where) {
  LogMessageBody message = draft.body;
  TamLogClient::FillTexts(draft.source, text, message);
  // The server ignores `origin`. Process and running number make equal messages different, so that --confirm
  // finds the right one.
  const std::uint32_t process = ProcessId();
  std::memcpy(&message.origin[0], &process, sizeof(process));
  std::memcpy(&message.origin[4], &sent, sizeof(sent));
  const Status status = client.Submit(message);
  if (status != Status::Ok) return Refuse(ExitCodeOf(status), where + Explain(status));
  ++sent;
  return options.confirm ? Confirm(message) : kDone;
}

// Looks for the message in the log for one second: the server writes what it keeps within 0.2 s. A message
// that is not there after 0.4 s is judged by the server's filters, so that the answer need not wait for the
// whole second.
int Sender::Confirm(const LogMessageBody& message) {
  constexpr std::uint64_t kLookMs = 1000;
  constexpr std::uint64_t kJudgeMs = 400;
  const std::uint64_t start = Ticks();
  bool judged = false;
  int exitCode = kDone;
  // Not kept for the next message: that may be hours away, and a reader that holds the log open over a
  // restart makes the server continue with the old section.
  TamLogClient::LogReader reader;
  const auto isKnown = [&] {
    Status status = reader.IsOpen() ? Status::Ok : reader.Open();
    if (status == Status::Ok) status = reader.Snapshot(snapshot, options.timeoutMs);
    if (status != Status::Ok && status != Status::NotRunning) {
      exitCode = Refuse(status, "sent, but it cannot be looked for");
      return true;
    }
    if (status == Status::Ok && Find(message)) return true;
    if (judged || Ticks() - start < kJudgeMs) return false;
    judged = true;
    if (IsDropped(message)) exitCode = kNegative;
    return exitCode == kNegative;
  };
  const int waited = WaitUntil(kLookMs, 50, isKnown);
  if (waited != kTimedOut) return waited == kDone ? exitCode : waited;
  return Refuse(
      kNegative,
      "not seen in 1 s: a reader may block the server (see: tamlogctl doctor), or the log may be full "
      "of later messages");
}

bool Sender::Find(const LogMessageBody& message) const {
  for (const std::uint32_t slot : snapshot.RingOrder()) {
    if (std::memcmp(&snapshot.slots[slot].body, &message, sizeof(message)) != 0) continue;
    Say("stored as " + std::to_string(snapshot.slots[slot].sequence));
    return true;
  }
  return false;
}

// Judges by the present filters, which need not be those of a moment ago.
bool Sender::IsDropped(const LogMessageBody& message) {
  SettingsBody settings{};
  std::vector<TamLogClient::FilterEntry> filters;
  if (client.GetSettings(settings) != Status::Ok || RequestFilters(client, filters) != kDone) return false;
  LogMessage stored{};
  stored.body = message;
  const TamLogClient::LogMessageView view(stored);
  const auto verdict = JudgeMessage(filters, settings.typeFilter, view.Source(), view.Type());
  if (!verdict.kept) Say(VerdictText(filters, verdict, view.Type()));
  return !verdict.kept;
}

}  // namespace

int Send(const SendOptions& options) {
  Sender sender(options);
  return sender.Run();
}

}  // namespace TamLogCtl
