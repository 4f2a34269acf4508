// No reader of ours delays the server, whatever happens to it: while messages flow, the test kills and
// suspends readers of every kind at random moments. Meanwhile the server writes as it does without readers,
// and no reader is ever counted inside the log. Readers of other programs that take access do block it when
// they are killed; `doctor --unstick` releases the server.
//
// Few readers by default, to keep the ordinary round short; scripts/kill-readers.sh sets more by
// TAMLOG_READER_KILLS, TAMLOG_SUSPENSIONS and TAMLOG_SUSPENDED_MS in the environment.

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <random>

#include "tests/system/flush_watch.h"
#include "tests/system/system_test.h"

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::uint32_t kCapacity = 20000;
constexpr std::uint32_t kUsage = 2;           // exit code for a wrong command line
constexpr std::size_t kAtOnce = 4;            // killed readers
constexpr std::size_t kSuspendedAtOnce = 20;  // suspended readers

int Setting(const char* name, int usual) {
  const char* const text = std::getenv(name);
  return text == nullptr ? usual : std::max(1, std::atoi(text));
}

milliseconds SuspensionTime() {
  return milliseconds(Setting("TAMLOG_SUSPENDED_MS", 4000));
}

// A kind of program: its arguments, in which a # stands for the number of the start.
struct Kind {
  const char* name;
  const char* program;
  std::string arguments;
  bool ends = true;        // by itself
  milliseconds most{400};  // when it is killed after its start; of one that ends, how long it takes
  int started = 0;
  int hit = 0;  // of these, alive when they were killed or suspended
};

}  // namespace

class KilledReaders : public SystemTest {
 protected:
  KilledReaders() {
    const std::string exported = ScratchFile("exported#.json");
    const std::string nowhere = ScratchFile("missing") + "\\log.dat";  // so that clear reads and stops there
    readers = {{"library: snapshot", "library_reader.exe", "snapshot", false},
               {"library: view", "library_reader.exe", "view", false},
               {"library: next", "library_reader.exe", "next", false},
               {"library: wait", "library_reader.exe", "wait", false},
               {"follow", "tamlogctl.exe", "follow -n 1 --interval 10 -o cat", false},
               {"export --follow", "tamlogctl.exe", "export --follow \"" + exported + "\" -o json", false},
               {"show", "tamlogctl.exe", "show -F -g \"in no message\""},
               {"show -n", "tamlogctl.exe", "show -n 20 -o cat"},
               {"stats", "tamlogctl.exe", "stats"},
               {"status", "tamlogctl.exe", "status"},
               {"verify", "tamlogctl.exe", "verify --live -q"},
               {"doctor", "tamlogctl.exe", "doctor"},
               {"clear --backup", "tamlogctl.exe", "clear --yes --backup \"" + nowhere + "\""}};
    others = {{"busy program", "library_reader.exe", "none", false}, {"help", "tamlogctl.exe", "help"}};
  }

  ~KilledReaders() override {
    stopFeeding = true;
    if (feeder.joinable()) feeder.join();
  }

  // Fills the ring, and begins to submit without pause over one connection, now and then a late message, so
  // that flushes append, insert and rewrite.
  void Load() {
    RunService({.maxMessage = kCapacity, .saveRate = 3600});  // the server itself enters the log to save it
    feeder = std::thread([this] {
      std::optional<ServerConnection> client = ServerConnection::Connect(5s);
      for (int at = 1000; client && !stopFeeding; ++at) {
        const bool late = at % 500 == 0;
        if (client->AskForCode(SubmitRequest(Message("load", late ? at - 300 : at))) != ReplyCode::Done) {
          client = ServerConnection::Connect(5s);
        }
        ++fed;
        if (at > 3000) std::this_thread::sleep_for(1ms);
      }
    });
    ASSERT_TRUE(Eventually(30s, [this] { return fed > 2500; }));
  }

  std::unique_ptr<ChildProcess> Start(const Kind& kind) {
    std::string line = "\"" + OwnDirectory() + "\\" + kind.program + "\" " + kind.arguments;
    if (const auto at = line.find('#'); at != std::string::npos)
      line.replace(at, 1, std::to_string(++starts));
    return std::make_unique<ChildProcess>(line);
  }

  // Determines how long those take that end by themselves.
  void Time(std::vector<Kind>& kinds) {
    for (Kind& kind : kinds) {
      if (!kind.ends) continue;
      const auto begin = Clock::now();
      const std::unique_ptr<ChildProcess> started = Start(kind);
      const auto exitCode = started->WaitForEnd(20s);
      EXPECT_NE(exitCode.value_or(kUsage), kUsage) << kind.name << "\n" << started->FinishOutput(0ms);
      kind.most = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
      std::cout << "note: " << kind.name << " takes " << kind.most.count() << " ms\n";
    }
  }

  milliseconds RandomTime(milliseconds most) {
    return milliseconds(std::uniform_int_distribution<long long>(0, most.count())(random));
  }

  struct Doomed {
    std::unique_ptr<ChildProcess> process;
    Kind* kind;
    Clock::time_point end;
  };

  // Starts that many programs, of one kind after the other, and kills each at a random moment.
  void Kill(std::vector<Kind>& kinds, int kills) {
    std::vector<Doomed> running;
    for (int i = 0; i < kills || !running.empty();) {
      for (; i < kills && running.size() < kAtOnce; ++i) {
        Kind& kind = kinds[static_cast<std::size_t>(i) % kinds.size()];
        ++kind.started;
        running.push_back({Start(kind), &kind, Clock::now() + RandomTime(kind.most)});
      }
      const auto next = std::min_element(running.begin(), running.end(),
                                         [](const auto& a, const auto& b) { return a.end < b.end; });
      std::this_thread::sleep_until(next->end);
      next->kind->hit += next->process->WaitForEnd(0ms) ? 0 : 1;
      next->process->Kill();
      next->process->WaitForEnd(20s);
      running.erase(next);
    }
  }

  // Starts programs, of one kind after the other, and suspends each at a random moment, until `wanted` were
  // alive when it happened.
  void Suspend(std::vector<Kind>& kinds, int wanted) {
    for (int suspended = 0, i = 0; suspended < wanted;) {
      std::vector<std::unique_ptr<ChildProcess>> asleep;
      const int most = std::min(wanted - suspended, static_cast<int>(kSuspendedAtOnce));
      for (int taken = 0; taken < most; ++i) {
        Kind& kind = kinds[static_cast<std::size_t>(i) % kinds.size()];
        ++kind.started;
        asleep.push_back(Start(kind));
        std::this_thread::sleep_for(RandomTime(kind.most));
        asleep.back()->Suspend();
        const bool alive = !asleep.back()->WaitForEnd(0ms);
        kind.hit += alive ? 1 : 0;
        taken += alive ? 1 : 0;
      }
      suspended += most;
      std::this_thread::sleep_for(SuspensionTime());
      for (const auto& each : asleep) each->Resume();
      std::this_thread::sleep_for(RandomTime(200ms));
      for (const auto& each : asleep) each->Kill();
    }
  }

  // Checks what was seen of the server against what was seen while programs ran that do not read.
  void Judge(const char* happened, const FlushWatch::Figures& seen, const FlushWatch::Figures& usual) {
    std::cout << "readers: " << happened << ": ";
    Print(seen);
    std::cout << "readers: the same with programs that do not read: ";
    Print(usual);
    int started = 0;
    int hit = 0;
    for (const Kind& kind : readers) {
      std::cout << "note: " << kind.name << ": " << kind.started << " started, " << kind.hit
                << " alive when it happened\n";
      started += kind.started;
      hit += kind.hit;
    }
    EXPECT_GT(3 * hit, started) << "most readers ended before anything happened to them";
    EXPECT_EQ(seen.counted, 0U) << "a reader of ours takes access";
    EXPECT_GT(seen.flushes, 5U);
    // A flush comes every 200 ms. One that waits for a suspended reader waits for nearly all of the
    // suspension; one that waits for a killed reader, forever. On a busy machine a flush may take a second.
    EXPECT_LT(seen.longestWrite, usual.longestWrite + SuspensionTime() * 3 / 4);
    EXPECT_LT(seen.longestPause, usual.longestPause + SuspensionTime() * 3 / 4);
    EXPECT_TRUE(ServiceProcess().Alive());
  }

  // Returns what is seen of the server while `work` is done.
  template <typename Work>
  static FlushWatch::Figures Watch(Work work) {
    FlushWatch watch;
    work();
    return watch.Stop();
  }

  static void Print(const FlushWatch::Figures& figures) {
    std::cout << figures.flushes << " flushes, the longest " << figures.longestWrite.count()
              << " ms, the longest time between two " << figures.longestPause.count()
              << " ms; readers counted inside in " << figures.counted << " of " << figures.samples
              << " samples\n";
  }

  std::vector<Kind> readers;
  std::vector<Kind> others;  // programs that do not read
  int starts = 0;
  std::mt19937 random{20261122};  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same order in every run
  std::atomic<bool> stopFeeding{false};
  std::atomic<int> fed{0};
  std::thread feeder;
};

TEST_F(KilledReaders, NeverHoldUpTheServer) {
  Load();
  Time(readers);
  Time(others);
  const int kills = Setting("TAMLOG_READER_KILLS", 26);
  const auto usual = Watch([&] { Kill(others, kills); });
  const auto seen = Watch([&] { Kill(readers, kills); });
  Judge((std::to_string(kills) + " killed").c_str(), seen, usual);
}

TEST_F(KilledReaders, NeverHoldUpTheServerWhileTheyAreSuspended) {
  Load();
  Time(readers);
  Time(others);
  const int suspensions = Setting("TAMLOG_SUSPENSIONS", 13);
  const auto usual = Watch([&] { Suspend(others, suspensions); });
  const auto seen = Watch([&] { Suspend(readers, suspensions); });
  Judge((std::to_string(suspensions) + " suspended for " + std::to_string(SuspensionTime().count()) +
         " ms each")
            .c_str(),
        seen, usual);
}

// Each is killed somewhere between taking and leaving access, or holding the header lock.
TEST_F(KilledReaders, OfOthersThatTakeAccessAreFreedByUnstick) {
  Load();
  const int kills = 12;
  int stuck = 0;
  for (int i = 0; i < kills; ++i) {
    ReaderProcess reader("hurry");
    ASSERT_EQ(reader.NextLine(), "hurrying");
    std::this_thread::sleep_for(RandomTime(100ms));
    reader.Kill();
    ASSERT_TRUE(reader.HasEnded(20s));
    const auto writes = [&] {
      const std::uint64_t before = Header().changeCount;
      return Eventually(5s, [&] { return Header().changeCount >= before + 2; });
    };
    if (writes()) continue;
    ++stuck;
    const CommandReport report = RunTool("doctor --unstick");
    EXPECT_EQ(report.exitCode, 1U) << report.output;
    EXPECT_TRUE(writes()) << report.output;
    EXPECT_EQ(Header().readCount, 0) << report.output;
  }
  std::cout << "note: " << stuck << " of " << kills << " killed readers with access stopped the writing\n";
  EXPECT_GT(stuck, 0);
}
