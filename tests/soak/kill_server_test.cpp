// Kills the server's process TAMLOG_KILLS times at random moments under load. Whatever the moment, the next
// start keeps the file or empties it as the rules require, and the file holds every message that was accepted
// more than two flushes before. scripts/kill-server.sh runs this test.

#include <algorithm>
#include <array>
#include <iostream>
#include <map>
#include <random>
#include <set>

#include "client/file/log_file_image.h"
#include "client/file/log_file_repair.h"
#include "client/file/log_file_verify.h"
#include "client/live/log_client.h"
#include "tests/soak/driver_feeder.h"
#include "tests/soak/judge.h"
#include "tests/soak/worker.h"
#include "tests/system/shared_log.h"
#include "tests/system/system_test.h"
#include "util/win32.h"

#undef StartService  // would rename the fixture's operation

using namespace std::chrono_literals;
using namespace Soak;
using TamLogClient::FileRule;
using TamLogClient::Status;

namespace {

constexpr std::uint32_t kClients = 16;
constexpr std::uint32_t kPauseMs = 10;
constexpr std::uint32_t kBurst = 300;
constexpr std::uint32_t kLargeBurst = 1500;
constexpr auto kHeldUp = 500ms;
// A late message makes the flush rewrite the messages after its place, each into the slot of the next: a
// flush that is cut off has overwritten some messages that it has not rewritten yet. The limit is how far
// back that may reach: late messages, and a flush that was held up.
constexpr Moment kMovedAtMost = 3'000'000;
// The share of all messages that may be lost this way. The loss is rare: a larger share has another cause.
constexpr std::uint64_t kMovedShare = 100;
constexpr int kWritingMicroseconds = 2000;
constexpr std::uint32_t kPollMs = 100;
// More messages than are accepted between two kills, so that none is overwritten before the test has looked
// for it; the ring is full after a few kills.
constexpr std::uint32_t kCapacity = 6000;
constexpr std::uint32_t kSaveSeconds = 1;
constexpr Moment kRestartDelay = 950'000;
constexpr std::size_t kNewest = 100;  // enough messages to determine whether a file was kept

enum class When : std::uint8_t { Anywhere, Writing, Starting, Restarting, Followed };
constexpr std::size_t kWhens = 5;
constexpr const char* kWhenNames[kWhens] = {"anywhere", "while it wrote much", "while it started",
                                            "while it restarted", "with a follower"};

// The state after a kill, and its outcome.
struct Kill {
  When when = When::Anywhere;
  std::int32_t messages = 0;  // in the ring
  bool full = false;
  bool accepted = false;  // the file keeps the rules
  bool kept = false;      // by the next start
  std::string rules;      // the rules that it breaks
  std::set<std::uint64_t> newest;
};

std::uint64_t Packed(const MessageId& id) {
  return std::uint64_t{id.sender} << 32U | id.number;
}

std::string BrokenRules(const TamLogClient::VerifyReport& report) {
  std::string names;
  for (std::size_t i = 0; i < TamLogClient::kFileRules; ++i) {
    const auto rule = static_cast<FileRule>(i);
    if (report.count[i] == 0 || (IsRemark(rule) && rule != FileRule::ReversedBlock)) continue;
    names += (names.empty() ? "" : " and ") + std::string(RuleName(rule));
  }
  return names;
}

// Reads the file's header from outside, without any access, continuously, for the judge. Until the ring has
// wrapped it also notes the messages in the file.
class HeaderWatch {
 public:
  explicit HeaderWatch(std::string logFile) : path(std::move(logFile)), thread([this] { Run(); }) {}
  ~HeaderWatch() { Stop(); }
  HeaderWatch(const HeaderWatch&) = delete;
  HeaderWatch& operator=(const HeaderWatch&) = delete;

  // Everything seen after this call belongs to the next life of the server.
  void NextLife() { ++life; }
  void Stop() {
    stopping = true;
    if (thread.joinable()) thread.join();
  }
  const std::vector<Look>& Looks() const { return looks; }  // after Stop
  const SeenMessages& Seen() const { return seen; }         // after Stop

 private:
  void Run() {
    while (!stopping) {
      Look look{.begin = Now(), .opening = life};
      const std::optional<LogFileHeader> header = TestLogFile::ReadHeader(path);
      look.end = Now();
      if (header && header->serverRunning == 1 && look.opening == life) {
        look.changeCount = header->changeCount;
        looks.push_back(look);
        NoteMessages(header->nextSequence);
      }
      std::this_thread::sleep_for(10ms);
    }
  }

  void NoteMessages(std::uint64_t nextSequence) {
    if (nextSequence >= noted && nextSequence - noted < kCapacity / 3) return;
    noted = nextSequence;
    const std::string bytes = ReadWholeFile(path);
    const TamLogClient::LogFileImage image(bytes);
    for (const std::uint32_t slot : image.RingSlots()) {
      if (const std::optional<MessageId> id = Identify(image.Slot(slot).body)) seen.Add(*id);
    }
  }

  std::string path;
  std::vector<Look> looks;
  SeenMessages seen;
  std::uint64_t noted = 0;
  std::atomic<std::uint32_t> life{0};
  std::atomic<bool> stopping{false};
  std::thread thread;
};

}  // namespace

class KilledServer : public SystemTest {
 protected:
  static When PlanOf(std::uint32_t number) {
    switch (number % 10) {
      case 2:
      case 6:
        return When::Writing;
      case 4:
        return When::Starting;
      case 7:
        return When::Restarting;
      case 9:
        return When::Followed;
      default:
        return When::Anywhere;
    }
  }

  void SleepUpTo(int milliseconds) {
    std::uniform_int_distribution<int> any(0, milliseconds * 1000);
    std::this_thread::sleep_for(std::chrono::microseconds(any(random)));
  }

  // Has a reader hold up the flushes for a while and release them: the server then writes a large amount. The
  // reader's handles are closed before the next start, which would adopt existing events in their present
  // state.
  void HoldUpAndLetGo(std::unique_ptr<SharedLog>& reader) {
    reader = SharedLog::TryOpen();
    ASSERT_TRUE(reader);
    ASSERT_TRUE(reader->Enter(5s));
    std::this_thread::sleep_for(kHeldUp);
    reader->Leave();
    std::uniform_int_distribution<int> any(0, kWritingMicroseconds);
    const Moment until = Now() + any(random);
    while (Now() < until) {
    }
  }

  void BeginInterruption(When when, Moment from) {
    interruptions.push_back({Interruption::Kind::Restart, from, 0});
    causes.push_back(when);
  }

  // Does everything that takes time before the chosen moment.
  void Terminate(When when) {
    ASSERT_TRUE(ProcessById(ServiceControl::ProcessId()).Runs("TamLogServer.exe"));
    const OwnedHandle server =
        Own(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, ServiceControl::ProcessId()));
    ASSERT_TRUE(server);
    std::unique_ptr<SharedLog> reader;
    if (when == When::Writing) HoldUpAndLetGo(reader);
    if (interruptions.empty() || interruptions.back().to != 0) BeginInterruption(when, Now());
    TerminateProcess(server.get(), 1);
    ASSERT_EQ(WaitForSingleObject(server.get(), 10000), WAIT_OBJECT_0);
  }

  // Examines the file that the killed server left.
  void Inspect(HeaderWatch& watch, When when) {
    watch.NextLife();
    const std::string bytes = ReadWholeFile(LogFile());
    const TamLogClient::LogFileImage image(bytes);
    const TamLogClient::VerifyReport report = TamLogClient::VerifyLogFile(image);
    Kill kill;
    kill.when = when;
    kill.messages = report.header.messageCount;
    kill.full = report.header.messageCount == report.header.maxMessages;
    kill.accepted = report.Accepted();
    kill.rules = BrokenRules(report);
    const std::vector<std::uint32_t> ring = image.RingSlots();
    std::set<std::uint64_t> whole;
    for (std::size_t i = 0; i < ring.size(); ++i) {
      const std::optional<MessageId> id = Identify(image.Slot(ring[i]).body);
      if (!id) {
        ++torn;
        continue;
      }
      seen.Add(*id);
      whole.insert(Packed(*id));
      if (i + kNewest >= ring.size()) kill.newest.insert(Packed(*id));
    }
    if (!kill.accepted) ExpectRepairable(image, std::move(whole));
    kills.push_back(std::move(kill));
  }

  // tamlogctl recovers, from a copy made before the next start, the messages that this start removes.
  void ExpectRepairable(const TamLogClient::LogFileImage& image, std::set<std::uint64_t> whole) {
    inEmptied += whole.size();
    for (const TamLogClient::SavedMessage& saved : TamLogClient::PlanRepair(image).oldestFirst) {
      const std::optional<MessageId> id = Identify(SavedMessageOf(image, saved).body);
      if (id && whole.erase(Packed(*id)) > 0) ++repaired;
    }
    EXPECT_TRUE(whole.empty()) << whole.size() << " messages cannot be repaired";
  }

  void StartAgain() {
    const std::uint32_t before = Starts();
    const std::uint32_t answer = ServiceControl::Start();
    if (answer != 0) throw std::runtime_error("starting failed with error " + std::to_string(answer));
    ASSERT_TRUE(Eventually(60s, [&] { return Starts() > before; })) << TakeDiagnostics();
    // Clients that the kill interrupted between their two opens may have acquired the reply pipes of others:
    // until these have noticed, a request may fail. The start is complete when a message is accepted.
    const bool back = Eventually(60s, [this] { return Mark(); });
    interruptions.back().to = Now();
    ASSERT_TRUE(back) << Diagnosis();
    ASSERT_TRUE(
        Eventually(10s, [] { return ProcessById(ServiceControl::ProcessId()).Runs("TamLogServer.exe"); }));
    AdoptService();
    TakeInStart();
  }

  // Checks that the start has kept all messages of the file, or none.
  void TakeInStart() {
    Kill& kill = kills.back();
    const std::set<std::uint64_t> stored = NoteStored();
    const auto found = static_cast<std::size_t>(
        std::ranges::count_if(kill.newest, [&](std::uint64_t id) { return stored.contains(id); }));
    kill.kept = !kill.newest.empty() && found == kill.newest.size();
    if (kill.newest.empty()) return;
    EXPECT_TRUE(found == 0 || kill.kept) << found << " of " << kill.newest.size();
    EXPECT_EQ(kill.kept, kill.accepted) << kill.rules;
  }

  // Notes the messages that the file has now.
  std::set<std::uint64_t> NoteStored() {
    const std::string bytes = ReadWholeFile(LogFile());
    const TamLogClient::LogFileImage image(bytes);
    std::set<std::uint64_t> stored;
    for (const std::uint32_t slot : image.RingSlots()) {
      const std::optional<MessageId> id = Identify(image.Slot(slot).body);
      if (!id) continue;
      seen.Add(*id);
      stored.insert(Packed(*id));
    }
    return stored;
  }

  void KillOnce(HeaderWatch& watch, When when) {
    // The more the server has to write, the longer the write takes.
    if (when == When::Writing) burst = kLargeBurst;
    SleepUpTo(1200);
    if (when == When::Restarting) {
      EXPECT_EQ(control.SetSettings({kCapacity, kPollMs, 0xF, kSaveSeconds}), Status::Ok);
      BeginInterruption(when, Now() + kRestartDelay);
      std::this_thread::sleep_for(950ms);
      SleepUpTo(600);
    }
    Terminate(when);
    burst = kBurst;
    Inspect(watch, when == When::Starting ? When::Anywhere : when);
    if (when == When::Starting) KillTheNextStart(watch);
  }

  void KillTheNextStart(HeaderWatch& watch) {
    ASSERT_EQ(ServiceControl::Start(), 0U);
    ASSERT_TRUE(
        Eventually(10s, [] { return ProcessById(ServiceControl::ProcessId()).Runs("TamLogServer.exe"); }));
    SleepUpTo(150);
    Terminate(When::Starting);
    Inspect(watch, When::Starting);
  }

  // A reader notices that a server has died without notice, and releases the log: only then may the next
  // server start.
  void KillWithFollower(HeaderWatch& watch) {
    Worker follower("follow", ScratchFile("followed"));
    std::this_thread::sleep_for(300ms);
    KillOnce(watch, When::Followed);
    const Moment killed = Now();
    ASSERT_TRUE(Eventually(30s, [] { return !Own(OpenFileMappingA(FILE_MAP_READ, FALSE, kFileMapName)); }));
    longestHold = std::max(longestHold, Now() - killed);
    StartAgain();
    std::this_thread::sleep_for(1s);
    follower.Tell();
    const std::string line = follower.Finish();
    EXPECT_NE(line.find("reopened 1"), std::string::npos) << line;
  }

  // Submits a message of the conductor's own.
  bool Mark() {
    return control.Ping() == Status::Ok &&
           control.Submit(MakeMessage({.sender = kMarkSender, .number = marks++})) == Status::Ok;
  }

  // Waits until the messages accepted in the server's last life are written and looked for, too.
  void Settle() {
    for (int i = 0; i < 4; ++i) {
      const std::uint64_t before = Header().changeCount;
      ASSERT_TRUE(Mark());
      ASSERT_TRUE(Eventually(20s, [&] { return Header().changeCount != before; }));
      std::this_thread::sleep_for(50ms);
    }
    // Only noted: what the last kill left may be overwritten by now.
    NoteStored();
  }

  static std::string Counted(const std::map<std::string, int>& counts) {
    std::string text;
    for (const auto& [name, count] : counts) {
      text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + name;
    }
    return text.empty() ? "none" : text;
  }

  std::string KillsText() const {
    std::map<std::string, int> kinds;
    std::map<std::string, int> rules;
    int empty = 0;
    int kept = 0;
    int emptied = 0;
    int emptiedFull = 0;
    std::int32_t most = 0;
    for (const Kill& kill : kills) {
      ++kinds[kWhenNames[static_cast<std::size_t>(kill.when)]];
      if (kill.accepted) {
        ++(kill.messages == 0 ? empty : kept);
        continue;
      }
      ++emptied;
      emptiedFull += kill.full ? 1 : 0;
      most = std::max(most, kill.messages);
      ++rules[kill.rules];
    }
    return std::to_string(kills.size()) + " kills (" + Counted(kinds) + "): file kept " +
           std::to_string(kept) + " times, nothing in it " + std::to_string(empty) + " times, emptied " +
           std::to_string(emptied) + " times (" + Counted(rules) + "; " + std::to_string(emptiedFull) +
           " of them with a full ring, " + std::to_string(most) +
           " messages at most; tamlogctl repair saves " + std::to_string(repaired) + " of the " +
           std::to_string(inEmptied) + " whole ones)";
  }

  // The cost of kills: the number of lost messages, and the age of the oldest.
  struct Cost {
    std::map<std::size_t, std::uint64_t> messages;  // by interruption
    Moment oldest = 0;

    void Add(std::size_t number, Moment age) {
      ++messages[number];
      oldest = std::max(oldest, age);
    }
    std::uint64_t Sum() const {
      std::uint64_t sum = 0;
      for (const auto& [kill, count] : messages) sum += count;
      return sum;
    }
    std::string Text() const {
      std::uint64_t most = 0;
      for (const auto& [kill, count] : messages) most = std::max(most, count);
      return "at most " + std::to_string(most) + " messages (" +
             std::to_string(Sum() / std::max<std::size_t>(1, messages.size())) +
             " on average), the oldest taken " + std::to_string(oldest / 1000) + " ms before";
    }
  };

  static void ExpectRare(const Cost& moved, std::uint64_t sent) {
    EXPECT_LE(moved.Sum() * kMovedShare, sent)
        << moved.Sum() << " messages are missing that had to be in the file before a kill: more than "
        << "a flush can have been moving";
  }

  std::string CostText(const std::vector<Sent>& all, Account& account, const HeaderWatch& watch) const {
    const Judge judge(watch.Looks(), interruptions, {});
    Cost usual;
    Cost heldUp;
    Cost moved;
    for (const Sent& message : all) {
      const Verdict verdict = judge.Of(message, seen.Has(message.id) || watch.Seen().Has(message.id));
      const auto kill = std::ranges::find_if(interruptions, [&](const Interruption& each) {
        return each.to >= message.sent && (verdict != Verdict::Lost || each.from >= message.answered);
      });
      const auto number = static_cast<std::size_t>(kill - interruptions.begin());
      if (verdict == Verdict::Lost && kill != interruptions.end() &&
          kill->from - message.answered <= kMovedAtMost) {
        moved.Add(number, kill->from - message.answered);
        continue;
      }
      account.Add(verdict);
      if (verdict != Verdict::PendingAtRestart || kill == interruptions.end()) continue;
      (causes[number] == When::Writing ? heldUp : usual).Add(number, kill->from - message.answered);
    }
    ExpectRare(moved, all.size());
    std::cout << "note: messages of the file that a flush was moving when it was cut off: "
              << moved.messages.size() << " kills cost " << moved.Text() << "\n";
    return "messages not written yet: a kill cost " + usual.Text() +
           "; where a reader had held up the writing for half a second, " + heldUp.Text();
  }

  std::mt19937 random{20261121};
  TamLogClient::LogClient control{{.timeoutMs = 20000, .absentMs = 2000}};
  SeenMessages seen;
  std::vector<Interruption> interruptions;
  std::vector<When> causes;  // one for each interruption
  std::vector<Kill> kills;
  std::uint64_t torn = 0;
  std::uint64_t inEmptied = 0;  // whole messages in files that the next start emptied
  std::uint64_t repaired = 0;   // those of them that a repair would have saved
  std::uint32_t marks = 0;
  std::atomic<std::uint32_t> burst{kBurst};
  Moment longestHold = 0;
};

TEST_F(KilledServer, ComesBackWithItsFileOrAnEmptyOneAndLosesOnlyWhatWasNotWritten) {
  RunService({.maxMessage = kCapacity, .devicePollRate = kPollMs, .saveRate = kSaveSeconds});
  HeaderWatch watch(LogFile());
  DriverFeeder feeder(burst, kPollMs);
  Worker clients("submit 0 " + std::to_string(kClients) + " " + std::to_string(kPauseMs),
                 ScratchFile("sent"));
  const std::uint32_t wanted = Setting("TAMLOG_KILLS", 10);
  for (std::uint32_t i = 0; kills.size() < wanted && !HasFailure(); ++i) {
    const When when = PlanOf(i);
    if (when == When::Followed) {
      KillWithFollower(watch);
    } else {
      KillOnce(watch, when);
      StartAgain();
    }
    if (i % 10 == 9) std::cout << kills.size() << " of " << wanted << " kills" << std::endl;
  }
  clients.Tell();
  clients.Finish();
  EXPECT_TRUE(feeder.Stop()) << feeder.Failure();
  kills.emplace_back();
  Settle();
  kills.pop_back();
  watch.Stop();

  std::vector<Sent> all = clients.Journal<Sent>();
  all.insert(all.end(), feeder.Messages().begin(), feeder.Messages().end());
  Account account;
  const std::string cost = CostText(all, account, watch);
  EXPECT_EQ(account.Failures(), 0U);
  std::map<std::string, int> texts;
  for (const std::string& text : DiagnosticTexts(TakeDiagnostics())) ++texts[text];
  std::cout << "note: the diagnostic log says: " << Counted(texts) << "\n"
            << "note: a follower released a dead server within " << longestHold / 1000 << " ms\n"
            << "note: " << torn << " messages of the ring were half written\n"
            << "note: " << account.Text() << "\n"
            << "kills: " << KillsText() << "; " << cost << std::endl;
}
