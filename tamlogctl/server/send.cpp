#include <cstring>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "client/file/file_path.h"
#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/message/log_message_view.h"
#include "client/message/time_text.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/locale.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/base/time_bound.h"
#include "tamlogctl/base/wait.h"
#include "tamlogctl/server/filter_text.h"
#include "tamlogctl/server/live_delivery.h"
#include "tamlogctl/server/live_server.h"
#include "tamlogctl/server/send.h"
#include "tamlogctl/server/send_lines.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::Status;
using LineSource = std::function<bool(std::string&)>;

// Returns whether the lines after one with this result are still sent.
bool GoesOn(int exitCode) {
  return exitCode == kDone || exitCode == kNegative || exitCode == kRefused;
}

std::string LineName(std::size_t number) {
  return "line " + std::to_string(number);
}

class Sender {
 public:
  explicit Sender(const SendOptions& chosen)
      : options(chosen),
        client({kRequestPipeName, chosen.timeoutMs}),
        target(client, chosen.timeoutMs, false) {}

  int Run();

 private:
  std::uint64_t RetryMs() const { return std::uint64_t{options.retrySeconds} * 1000; }
  std::uint64_t RetryAtStartMs() const { return options.waitAtStart ? RetryMs() : 0; }
  int SendText();
  int SendFile();
  int CheckLines(std::ifstream& file);
  int SendLines(const LineSource& next);
  int SendLine(const std::string& line, std::size_t number);
  int Connect();
  int SendOnce(const LogMessageBody& message);
  int FinishLines(int exitCode, std::size_t lines);
  int Abandon(int exitCode, std::size_t number);
  int Confirm(const LogMessageBody& message);
  int LookFor(const LogMessageBody& message, bool& seen);
  bool Find(const LogMessageBody& message) const;
  bool IsDropped(const LogMessageBody& message);

  const SendOptions& options;
  LogClient client;
  LiveTarget target;
  std::optional<Delivery> delivery;
  std::optional<TamLogClient::TimeWords> time;
  std::vector<LogMessageBody> messages;  // of the present line
  LineNumbers unsendable;
  // Random: the number of a process is soon given to another one.
  MessageMarks marks{std::random_device{}()};
  TamLogClient::LogSnapshot snapshot;  // of --confirm
};

int Sender::Run() {
  if (!options.time.empty()) {
    time = ParseBound(options.time, ClockOfNow(OffsetAtUtc));
    if (!time) return Refuse(kUsage, "--time '" + options.time + "': " + kExpectedTime);
  }
  if (options.hasArgument) return options.input.empty() ? SendText() : SendFile();
  if (StdinIsTerminal()) Say("reading messages from standard input, one on each line");
  return SendLines(ReadLine);
}

int Sender::Connect() {
  SettingsBody settings{};
  if (const int code = AwaitServer(client, RetryAtStartMs(), settings); code != kDone) return code;
  delivery.emplace(target, DeliveryOptions{.retryMs = RetryMs(), .capacity = settings.maxMessage});
  return kDone;
}

// Without --retry it does not wait for a server that stops meanwhile: scripts send single messages at any
// time.
int Sender::SendText() {
  std::string problem;
  if (!AppendMessagesOf(options.argument, options, time, messages, problem)) return Refuse(kUsage, problem);
  if (options.confirm || options.waitAtStart) DeferInterrupts();
  if (options.waitAtStart) {
    if (const int code = Connect(); code != kDone) return code;
  }
  for (LogMessageBody& message : messages) {
    marks.Mark(message);
    int code = options.waitAtStart ? delivery->Send(message) : SendOnce(message);
    if (code == kDone && options.confirm) code = Confirm(message);
    if (code != kDone) return code;
  }
  return options.waitAtStart ? delivery->Finish() : kDone;
}

int Sender::SendOnce(const LogMessageBody& message) {
  const Status status = client.Submit(message);
  return status == Status::Ok ? kDone : Refuse(status);
}

// A file is checked to its end before anything is sent, so that it is sent whole or not at all.
int Sender::SendFile() {
  std::ifstream file;
  if (const auto status = TamLogClient::OpenForReading(options.argument, file); status != Status::Ok)
    return Refuse(ExitCodeOf(status), FileProblem(options.argument, status));
  if (const int code = CheckLines(file); code != kDone) return code;
  file.clear();
  file.seekg(0);
  return SendLines([&file](std::string& line) { return ReadFileLine(file, line); });
}

int Sender::CheckLines(std::ifstream& file) {
  std::string line;
  std::string problem;
  std::size_t number = 0;
  while (ReadFileLine(file, line)) {
    ++number;
    messages.clear();
    if (AppendMessagesOf(line, options, time, messages, problem)) continue;
    if (unsendable.Count() < LineNumbers::kMostRanges)
      Say(options.argument + ": " + LineName(number) + ": " + problem);
    unsendable.Add(number);
  }
  if (unsendable.Count() == 0) return kDone;
  return Refuse(kUsage, "nothing was sent: " + std::to_string(unsendable.Count()) + " of " +
                            std::to_string(number) + " lines cannot be sent");
}

int Sender::SendLines(const LineSource& next) {
  DeferInterrupts();
  std::string line;
  int worst = kDone;
  Progress progress("lines sent:");
  std::size_t number = 0;
  while (!Interrupted() && next(line)) {
    progress.Show(++number);
    const int exitCode = SendLine(line, number);
    if (!GoesOn(exitCode)) return Abandon(exitCode, number);
    worst = WorseOf(worst, exitCode);
  }
  if (Interrupted()) return Abandon(kInterrupted, number);
  return FinishLines(worst, number);
}

// kNegative: the line cannot be sent, or --confirm has not found it. kRefused: the server refused it.
int Sender::SendLine(const std::string& line, std::size_t number) {
  std::string problem;
  messages.clear();
  if (!AppendMessagesOf(line, options, time, messages, problem)) {
    unsendable.Add(number);
    if (unsendable.Count() <= LineNumbers::kMostRanges) Say(LineName(number) + ": " + problem);
    return kNegative;
  }
  if (!delivery) {
    if (const int code = Connect(); code != kDone) return code;
  }
  int worst = kDone;
  for (LogMessageBody& message : messages) {
    marks.Mark(message);
    const std::size_t refused = delivery->Refused();
    if (const int code = delivery->Send(message, number); code != kDone) return code;
    if (delivery->Refused() > refused) {
      unsendable.Add(number);
      return Refuse(delivery->LastRefusal(), LineName(number));
    }
    if (!options.confirm) continue;
    const int code = Confirm(message);
    if (code != kDone && code != kNegative) return code;
    worst = WorseOf(worst, code);
  }
  return worst;
}

int Sender::FinishLines(int exitCode, std::size_t lines) {
  if (delivery) {
    if (const int code = delivery->Finish(); code != kDone) return Abandon(code, lines);
  }
  if (unsendable.Count() == lines && exitCode == kNegative) exitCode = kUsage;
  if (unsendable.Count() > 0)
    Say(std::to_string(lines - unsendable.Count()) + " of " + std::to_string(lines) +
        " lines were sent; not sent: " + (unsendable.Count() == 1 ? "line " : "lines ") + unsendable.Text());
  if (delivery && delivery->Losses() > 0) {
    const std::size_t missing = delivery->Sent() - delivery->Arrived();
    Say(std::to_string(delivery->Sent()) + " messages: " + std::to_string(delivery->Arrived()) +
        " in the log, " + std::to_string(missing) + " not" +
        (missing > 0 ? " (refused, dropped by a filter or a type, or older than the full log holds)" : "") +
        "; " + std::to_string(delivery->SentAgain()) + " were sent again after lost connections");
  }
  return exitCode;
}

// Reports which lines have arrived, and from which one on they are to be sent again.
int Sender::Abandon(int exitCode, std::size_t number) {
  if (!delivery || number == 0) return exitCode;
  delivery->Review();
  const std::size_t first = delivery->FirstUncertain();
  if (first == 0) return Refuse(exitCode, "all lines up to line " + std::to_string(number) + " have arrived");
  std::string text = first > 1 ? "the lines before line " + std::to_string(first) + " have arrived; " : "";
  text += "whether " + LineName(first);
  if (first < number) text += " to " + LineName(number);
  return Refuse(exitCode,
                text + " arrived is not known; to continue from there: tail -n +" + std::to_string(first));
}

// Waits until the log shows the message. One that a restart of the server has lost is sent again.
int Sender::Confirm(const LogMessageBody& message) {
  bool seen = false;
  int exitCode = LookFor(message, seen);
  if (exitCode == kDone && !seen && delivery) {
    const std::size_t again = delivery->SentAgain();
    if (const int code = delivery->Finish(); code != kDone) return code;
    if (delivery->SentAgain() > again) exitCode = LookFor(message, seen);
  }
  if (exitCode != kDone || seen) return exitCode;
  return Refuse(
      kNegative,
      "not seen in 1 s: a reader may block the server (see: tamlogctl doctor), or the log may be full "
      "of later messages");
}

// Looks for the message in the log for one second: the server writes what it keeps within 0.2 s. A message
// that is not there after 0.4 s is judged by the server's filters, so that the answer need not wait for the
// whole second.
int Sender::LookFor(const LogMessageBody& message, bool& seen) {
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
    seen = status == Status::Ok && Find(message);
    if (seen || judged || Ticks() - start < kJudgeMs) return seen;
    judged = true;
    reader.Close();  // the server's answers may take longer than it waits for its readers
    if (IsDropped(message)) exitCode = kNegative;
    return exitCode == kNegative;
  };
  const int waited = WaitUntil(kLookMs, 50, isKnown);
  return waited == kInterrupted ? waited : exitCode;
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
