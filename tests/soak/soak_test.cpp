// Runs a combined load against the real service for TAMLOG_SOAK_SECONDS seconds: hundreds of clients, a
// driver with thousands of messages per tick, followers, changing filters, clears, and settings that restart
// the server every few seconds. At the end every message is accounted for, and the server uses no more of the
// system than at the beginning. soak.sh runs this test.

#include <algorithm>
#include <iostream>
#include <map>

#include "client/live/log_client.h"
#include "tests/soak/driver_feeder.h"
#include "tests/soak/judge.h"
#include "tests/soak/server_figures.h"
#include "tests/soak/witness.h"
#include "tests/soak/worker.h"
#include "tests/system/system_test.h"

using namespace std::chrono_literals;
using namespace Soak;
using TamLogClient::Status;

namespace {

constexpr std::uint32_t kProcesses = 5;
constexpr int kFollowers = 2;
constexpr std::uint32_t kPauseMs = 200;  // between two messages of a client
constexpr std::uint32_t kBurst = 2000;   // of the driver, per tick
constexpr std::uint32_t kPollMs = 500;
constexpr std::uint32_t kCapacity = 20000;
constexpr std::uint32_t kSmallCapacity =
    300;  // less than one flush of a burst: more arrives at once than the ring holds
constexpr auto kPhase = 1200ms;
// A restart begins a second after its request, with a tolerance of one clock step.
constexpr Moment kRestartDelay = 950'000;
// The allowed difference between the largest figures of two halves of a run. The thread library keeps the
// records of ended threads, with one or two handles each, for new ones: their number is the largest number of
// threads that ever lived at a time, and on a busy machine the connections before a restart overlap with
// those after it for a while. A handle lost with each connection would add thousands.
constexpr std::size_t kHandleMargin = 60;
constexpr std::size_t kThreadMargin = 3;
constexpr std::size_t kMemoryMarginPercent = 10;

// Used in turn. The empty state ends each round, so that most messages pass.
const std::vector<FilterState>& FilterStates() {
  static const std::vector<FilterState> states{
      {.includes = {}, .excludes = {"camera"}},
      {.includes = {}, .excludes = {}},
      {.includes = {"Stage", "laser", "vac"}, .excludes = {"Stage"}},
      {.includes = {}, .excludes = {"Lasers", "Vacuum pump 2"}},
      {.includes = {}, .excludes = {}},
  };
  return states;
}

// Measures how long before a restart the messages lost in it had been accepted. Once the stop has begun
// nothing is written, but the server accepts messages until the last connection has ended.
class Ages {
 public:
  void Take(Moment answered, const std::vector<Interruption>& interruptions,
            const std::vector<Moment>& closings) {
    const auto restart = std::ranges::find_if(interruptions, [answered](const Interruption& each) {
      return each.kind == Interruption::Kind::Restart && each.to >= answered;
    });
    if (restart != interruptions.end()) beforeStop = std::max(beforeStop, restart->from - answered);
    const auto closing = std::ranges::lower_bound(closings, answered);
    if (closing != closings.end()) beforeClosing = std::max(beforeClosing, *closing - answered);
  }
  std::string Text() const {
    return std::to_string(beforeStop / 1000) + " ms before a stop began and " +
           std::to_string(beforeClosing / 1000) + " ms before one closed the log";
  }

 private:
  Moment beforeStop = 0;
  Moment beforeClosing = 0;
};

}  // namespace

class SoakRun : public SystemTest {
 protected:
  static std::uint32_t Clients() { return std::min(Setting("TAMLOG_SOAK_CLIENTS", 250), kMostClients); }

  void StartLoad() {
    const std::uint32_t each = (Clients() + kProcesses - 1) / kProcesses;
    for (int i = 0; i < kFollowers; ++i) {
      followers.push_back(std::make_unique<Worker>("follow", ScratchFile("followed" + std::to_string(i))));
    }
    for (std::uint32_t first = 0; first < Clients(); first += each) {
      const std::uint32_t count = std::min(each, Clients() - first);
      submitters.push_back(std::make_unique<Worker>(
          "submit " + std::to_string(first) + " " + std::to_string(count) + " " + std::to_string(kPauseMs),
          ScratchFile("sent" + std::to_string(first))));
    }
  }

  // Sends one request at a time to a running server: none may fail.
  void SetFilters(const FilterState& wanted) {
    FilterChange change{.after = wanted};
    change.after.types = types;
    change.begin = Now();
    EXPECT_EQ(control.ClearFilters(), Status::Ok);
    for (const std::string& text : wanted.includes) EXPECT_EQ(control.AddFilter({text, true}), Status::Ok);
    for (const std::string& text : wanted.excludes) EXPECT_EQ(control.AddFilter({text, false}), Status::Ok);
    change.end = Now();
    changes.push_back(change);
  }

  void RestartWith(std::uint32_t capacity, std::uint32_t typeFilter) {
    types = typeFilter;
    FilterChange change{.after = changes.empty() ? FilterState{} : changes.back().after};
    change.after.types = types;
    const std::uint32_t starts = Starts();
    change.begin = Now();
    EXPECT_EQ(control.SetSettings({capacity, kPollMs, types, 1}), Status::Ok);
    change.end = Now();
    changes.push_back(change);
    AwaitRestart(starts, change.begin);
  }

  void Clear() {
    const std::uint32_t starts = Starts();
    const Moment begin = Now();
    EXPECT_EQ(control.ClearLog(), Status::Ok);
    interruptions.push_back({Interruption::Kind::Clear, begin, Now()});
    ++clears;
    AwaitRestart(starts, begin);
  }

  void AwaitRestart(std::uint32_t starts, Moment requested) {
    if (!Eventually(90s, [&] { return Starts() > starts; })) throw std::runtime_error("no restart");
    EXPECT_EQ(Starts(), starts + 1);
    ++restarts;
    // The server accepts a message only when the start is complete.
    if (!Eventually(90s, [&] { return Mark(); }))
      throw std::runtime_error("not back after a restart:\n" + Diagnosis());
    interruptions.push_back({Interruption::Kind::Restart, requested + kRestartDelay, Now()});
  }

  // Submits a message of the conductor's own.
  bool Mark() {
    if (control.Ping() != Status::Ok) return false;
    Sent record{.id = {.sender = kMarkSender, .number = static_cast<std::uint32_t>(marks.size())}};
    const LogMessageBody body = MakeMessage(record.id);
    record.key = TimeKey(body);
    record.sent = Now();
    const Status status = control.Submit(body);
    record.answered = Now();
    record.outcome = status == Status::Ok ? Outcome::Taken : Outcome::Unanswered;
    marks.push_back(record);
    return status == Status::Ok;
  }

  void Interrupt(std::uint32_t turn) {
    switch (turn % 5) {
      case 0:
        return RestartWith(kCapacity, 0xB);
      case 1:
        return Clear();
      case 2:
        return RestartWith(kSmallCapacity, 0xF);
      case 3:
        return RestartWith(kCapacity, 0xF);
      default:
        return RestartWith(kCapacity, 0x7);
    }
  }

  void Cycle(std::uint32_t turn) {
    for (std::uint32_t i = 0; i < 2; ++i) {
      SetFilters(FilterStates()[(turn * 2 + i) % FilterStates().size()]);
      std::this_thread::sleep_for(kPhase);
    }
    figures.push_back(FiguresOf(ServiceControl::ProcessId()));
    Interrupt(turn);
  }

  // Waits until the witness must have seen every stored message.
  void Settle(const Witness& witness) {
    SetFilters({});
    for (int i = 0; i < 4; ++i) {
      ASSERT_TRUE(Eventually(60s, [this] { return Mark(); }));
      ASSERT_TRUE(Eventually(60s, [&] { return witness.Has(marks.back().id); }));
    }
  }

  void EndClients() {
    for (const auto& worker : submitters) worker->Tell();
    for (const auto& worker : submitters) {
      const std::string line = worker->Finish();
      EXPECT_EQ(line.find("submitted "), 0U) << line;
    }
  }

  std::vector<Sent> AllSent(const DriverFeeder& feeder) const {
    std::vector<Sent> all = marks;
    all.insert(all.end(), feeder.Messages().begin(), feeder.Messages().end());
    for (const auto& worker : submitters) {
      const std::vector<Sent> part = worker->Journal<Sent>();
      all.insert(all.end(), part.begin(), part.end());
    }
    return all;
  }

  // A follower returns each message once, and reports those that it missed.
  void TakeInFollower(Worker& worker, SeenMessages& seen) {
    const std::string line = worker.Finish();
    ASSERT_EQ(line.find("followed "), 0U) << line;
    SeenMessages own;
    std::uint64_t again = 0;
    for (const MessageId& id : worker.Journal<MessageId>()) {
      if (!own.Add(id)) ++again;
      seen.Add(id);
    }
    Note("a follower: " + line + ", " + std::to_string(again) + " twice");
    followed.push_back({own.Count(), line.find("lost 0 reopened") == std::string::npos});
  }

  void JudgeFollowers(const Witness& witness, const SeenMessages& seen) {
    for (const Followed& each : followed) {
      EXPECT_TRUE(each.count == seen.Count() || each.namedALoss) << seen.Count() - each.count << " missed";
    }
    EXPECT_EQ(witness.Blocked(), 0U);
    for (const std::string& fault : witness.Faults()) ADD_FAILURE() << fault;
    Note("the witness: " + std::to_string(witness.Looks().size()) + " copies of the log, each in at most " +
         std::to_string(witness.LongestCopyMicroseconds()) + " us, write-wait signalled " +
         std::to_string(witness.Rescues()) + " times, " + std::to_string(witness.Twice()) +
         " messages met twice in a small ring");
  }

  Account JudgeMessages(const DriverFeeder& feeder, const Witness& witness, const SeenMessages& seen) {
    const Judge judge(witness.Looks(), interruptions, changes);
    Account account;
    Ages ages;
    for (const Sent& message : AllSent(feeder)) {
      const Verdict verdict = judge.Of(message, seen.Has(message.id));
      account.Add(verdict);
      if (verdict == Verdict::PendingAtRestart)
        ages.Take(message.answered, interruptions, witness.Closings());
    }
    Note("of the messages pending at restarts the oldest had been taken " + ages.Text());
    EXPECT_EQ(account.Failures(), 0U);
    EXPECT_GT(account.Of(Verdict::Stored), 0U);
    EXPECT_GT(account.Of(Verdict::Filtered), 0U);
    EXPECT_LT(account.Uncertain(), account.sent / 4) << "too many verdicts are uncertain";
    return account;
  }

  // Compares the median figure of the first half of the run with that of the second half: on a busy machine a
  // single sample may meet connections that are just ending.
  void JudgeFigures() {
    ASSERT_GE(figures.size(), 2U) << "the run is too short";
    std::string handles;
    for (const ServerFigures& each : figures) handles += " " + std::to_string(each.handles);
    Note("handles of the server by round:" + handles);
    JudgeFigure("handles", &ServerFigures::handles, 0, kHandleMargin);
    JudgeFigure("threads", &ServerFigures::threads, 0, kThreadMargin);
    JudgeFigure("MiB", &ServerFigures::memoryMiB, kMemoryMarginPercent, 0);
  }

  void JudgeFigure(const std::string& name, std::size_t ServerFigures::*figure, std::size_t percent,
                   std::size_t more) {
    const auto half = figures.begin() + static_cast<std::ptrdiff_t>(figures.size() / 2);
    const auto median = [figure](auto from, auto to) {
      std::vector<std::size_t> values;
      for (; from != to; ++from) values.push_back((*from).*figure);
      const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
      std::nth_element(values.begin(), middle, values.end());
      return *middle;
    };
    const std::size_t before = median(figures.begin(), half);
    const std::size_t after = median(half, figures.end());
    EXPECT_LE(after, before + before * percent / 100 + more) << name << " grow";
    figuresText += (figuresText.empty() ? "" : ", ") + std::to_string(before) + ".." + std::to_string(after) +
                   " " + name;
  }

  // Reports how often each diagnostic text occurred, together with the causes.
  void JudgeDiagnostics() {
    std::map<std::string, int> texts;
    for (const std::string& text : DiagnosticTexts(TakeDiagnostics())) ++texts[text];
    for (const auto& [text, count] : texts) {
      Note("diagnostic log: " + std::to_string(count) + " x " + text);
      // The only expected entry: a disk tick while the file is being closed.
      EXPECT_EQ(
          text.find("Exception thrown in timer callback : Failed to get file read access in WriteToDisk()"),
          0U)
          << text;
    }
  }

  void JudgeFile() {
    const CommandReport verified = RunTool("verify \"" + LogFile() + "\"");
    EXPECT_EQ(verified.exitCode, 0U) << verified.output;
  }

  static void Note(const std::string& text) { std::cout << "note: " << text << "\n"; }

  struct Followed {
    std::uint64_t count = 0;
    bool namedALoss = false;
  };

  std::uint32_t types = 0xF;
  int restarts = 0;
  int clears = 0;
  TamLogClient::LogClient control{{.timeoutMs = 30000, .absentMs = 2000}};
  std::vector<std::unique_ptr<Worker>> submitters;
  std::vector<std::unique_ptr<Worker>> followers;
  std::vector<Sent> marks;
  std::vector<FilterChange> changes;
  std::vector<Interruption> interruptions;
  std::vector<ServerFigures> figures;
  std::vector<Followed> followed;
  std::string figuresText;
};

TEST_F(SoakRun, EveryMessageIsAccountedForAndTheServerKeepsItsSize) {
  const Moment begun = Now();
  const Moment end = begun + Moment{Setting("TAMLOG_SOAK_SECONDS", 60)} * 1000000;
  RunService({.maxMessage = kCapacity, .devicePollRate = kPollMs, .saveRate = 1});
  Witness witness(kCapacity);
  const std::atomic<std::uint32_t> burst{kBurst};
  DriverFeeder feeder(burst, kPollMs);
  StartLoad();
  for (std::uint32_t turn = 0; Now() < end; ++turn) Cycle(turn);
  EndClients();
  EXPECT_TRUE(feeder.Stop()) << feeder.Failure();
  RestartWith(kCapacity, 0xF);
  Settle(witness);
  witness.Stop();
  const Moment ended = Now();

  SeenMessages seen = witness.Seen();
  for (const auto& worker : followers) worker->Tell();
  for (const auto& worker : followers) TakeInFollower(*worker, seen);
  JudgeFollowers(witness, seen);
  const Account account = JudgeMessages(feeder, witness, seen);
  JudgeFigures();
  StopService();
  JudgeFile();
  JudgeDiagnostics();
  std::cout << "soak: " << (ended - begun) / 1000000 << " s, " << Clients() << " clients, " << restarts
            << " restarts, " << clears << " of them by clears, " << changes.size()
            << " changes of filters: " << account.Text() << "; the server: " << figuresText << std::endl;
}
