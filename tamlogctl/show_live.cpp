// show and follow on the log of a running server.

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "client/log_client.h"
#include "client/log_follower.h"
#include "client/log_reader.h"
#include "tamlogctl/console.h"
#include "tamlogctl/exit_code.h"
#include "tamlogctl/printer.h"
#include "tamlogctl/show.h"

namespace TamLogCtl {

namespace {

using TamLogClient::FollowStep;
using TamLogClient::LogClient;
using TamLogClient::LogFollower;
using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

int Explain(Status status) {
  Say(StatusText(status));
  if (status == Status::NotRunning)
    Say("start it with: net start TamLogServer; a copied log is shown with --file");
  if (status == Status::Stuck || status == Status::TimedOut)
    Say("another program may hold the log; try again");
  return ExitCodeOf(status);
}

std::vector<const LogMessage*> OldestFirst(const LogSnapshot& snapshot) {
  std::vector<const LogMessage*> messages;
  for (const std::uint32_t slot : OrderMessages(snapshot).oldestFirst)
    messages.push_back(&snapshot.slots[slot]);
  return messages;
}

bool Readable(Status status) {
  return status == Status::Ok || status == Status::Damaged;
}

// A read that found the server just stopping is not worth a failure: it may be restarting.
int ShowOnce(const ShowOptions& options, Printer& printer) {
  LogReader reader;
  LogSnapshot snapshot;
  Status status = reader.Open();
  if (status == Status::Ok) status = reader.Snapshot(snapshot, options.timeoutMs);
  reader.Close();  // before anything is printed: the output may be slow, and a stopping server waits for us
  if (!Readable(status)) return Explain(status);
  const auto order = OrderMessages(snapshot);
  if (snapshot.header.messageCount == 0 && !options.quiet) Say("the log is empty");
  printer.PrintLast(OldestFirst(snapshot));
  if (printer.OutputFailed()) return kOutputFailed;
  if (Interrupted()) return kInterrupted;
  if (status == Status::Damaged || order.damaged > 0) {
    Say(status == Status::Damaged ? "the log's header makes no sense"
                                  : std::to_string(order.damaged) + " messages break a rule of the format");
    return kDamaged;
  }
  return printer.Searches() && printer.Printed() == 0 ? kNothingMatched : kDone;
}

// Follows the log until it is interrupted, its time is over, or the output fails.
class Follow {
 public:
  Follow(const ShowOptions& chosen, Printer& target)
      : options(chosen), printer(target), client({kRequestPipeName, kPingMs, kPingMs}) {}

  int Run();

 private:
  // The log is looked at this often whatever the interval is, because a server that stops waits for its
  // readers.
  static constexpr std::uint32_t kMostLookMs = 200;
  static constexpr std::uint32_t kPingMs = 200;
  static constexpr std::uint64_t kSilenceMs = 3000;
  static constexpr std::uint32_t kReopenMs = 250;

  bool TimeIsOver() const { return end && Ticks() >= *end; }
  std::optional<int> Begin();
  std::optional<int> Visit();
  std::optional<int> TakeSnapshot();
  void Reopen();
  void LoseServer();
  void WatchSilence();
  void PrintStep(const FollowStep& step);
  void Tell(const std::string& line) const {
    if (!options.quiet) Say(line);
  }

  const ShowOptions& options;
  Printer& printer;
  LogClient client;
  LogReader reader;
  LogSnapshot snapshot;
  LogFollower follower;
  std::optional<std::uint64_t> end;
  std::uint64_t lastChange = 0;  // changeCount of the last snapshot
  std::uint64_t lastVisit = 0;   // ticks
  std::uint64_t lastNews = 0;    // ticks
  int failedPings = 0;
  bool lost = false;      // the server is away
  bool reopened = false;  // and has come back since the last snapshot
};

int Follow::Run() {
  if (options.forSeconds) end = Ticks() + static_cast<std::uint64_t>(*options.forSeconds * 1000);
  auto exitCode = Begin();
  const std::uint32_t step = std::min(options.intervalMs, kMostLookMs);
  while (!exitCode && !TimeIsOver()) {
    if (!SleepFor(lost ? kReopenMs : step)) exitCode = kInterrupted;
    if (!exitCode) exitCode = Visit();
    if (!exitCode && !printer.Flush()) exitCode = kOutputFailed;
  }
  reader.Close();
  client.Disconnect();
  return exitCode.value_or(kDone);
}

std::optional<int> Follow::Begin() {
  Status status = reader.Open();
  if (status == Status::Ok) status = reader.Snapshot(snapshot, options.timeoutMs);
  if (!Readable(status)) return Explain(status);
  follower.Start(snapshot);
  lastChange = snapshot.header.changeCount;
  lastNews = Ticks();
  printer.PrintLast(OldestFirst(snapshot));
  return std::nullopt;
}

std::optional<int> Follow::Visit() {
  if (lost) {
    Reopen();
    if (lost) return std::nullopt;
  }
  LogFileHeader header{};
  const Status status = reader.Look(header);
  if (status == Status::NotRunning) {
    LoseServer();
    return std::nullopt;
  }
  if (status != Status::Ok) return Explain(status);
  if (header.changeCount == lastChange && !reopened) {
    WatchSilence();
    return std::nullopt;
  }
  if (Ticks() - lastVisit < options.intervalMs) return std::nullopt;
  return TakeSnapshot();
}

std::optional<int> Follow::TakeSnapshot() {
  const Status status = reader.Snapshot(snapshot, options.timeoutMs);
  if (status == Status::NotRunning) {
    LoseServer();
    return std::nullopt;
  }
  if (status == Status::TimedOut) {
    Tell("the server keeps its readers waiting; still trying");
    return std::nullopt;
  }
  if (!Readable(status)) return Explain(status);
  lastVisit = lastNews = Ticks();
  lastChange = snapshot.header.changeCount;
  PrintStep(follower.Next(snapshot, reopened));
  reopened = false;
  return std::nullopt;
}

void Follow::PrintStep(const FollowStep& step) {
  const bool unknown = step.loss.Any() && !step.loss.Exact();
  if (step.cleared) {
    Tell(unknown ? "the log was emptied; what came between the last look and that is not shown"
                 : "the log was emptied");
  } else if (unknown) {
    Tell("messages may have been lost before they could be read; their number is not known");
  }
  if (step.loss.Any() && step.loss.Exact()) {
    Tell(std::to_string(step.loss.least) + " messages were gone before they could be read");
  }
  for (const auto& message : step.messages) printer.Print(snapshot.slots[message.slot], message.late);
}

void Follow::LoseServer() {
  reader.Close();
  client.Disconnect();
  lost = true;
  failedPings = 0;
  Tell("the server has stopped; waiting for it to come back");
}

void Follow::Reopen() {
  std::string name;
  if (client.GetFileMapName(name) != Status::Ok || reader.Open(name) != Status::Ok) return;
  lost = false;
  reopened = true;
  lastNews = Ticks();
  Tell("the server is back");
}

// A server that was killed cannot say so: its flag stays up for as long as somebody holds the mapping.
void Follow::WatchSilence() {
  if (Ticks() - lastNews < kSilenceMs) return;
  const Status status = client.Ping();
  client.Disconnect();
  failedPings = status == Status::NotRunning ? failedPings + 1 : 0;
  if (failedPings >= 2) {
    LoseServer();
  } else {
    lastNews = Ticks() - (failedPings > 0 ? kSilenceMs - 1000 : 0);
  }
}

}  // namespace

int ShowLive(const ShowOptions& options) {
  auto printer = Printer::Make(options);
  if (!printer) return kUsage;
  DeferInterrupts();
  if (!options.follow) return ShowOnce(options, *printer);
  Follow follow(options, *printer);
  return follow.Run();
}

}  // namespace TamLogCtl
