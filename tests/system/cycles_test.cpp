// Repeats starts and stops, and connections: each must work like the first and leave nothing behind.
// TAMLOG_CYCLES and TAMLOG_CONNECTS set the number of repetitions (few by default, to keep the ordinary round
// short).

#include <algorithm>
#include <cstdlib>

#include "tests/support/pipe_client.h"
#include "tests/system/settled_counts.h"
#include "tests/system/system_test.h"

using namespace std::chrono_literals;

namespace {

constexpr int kClients = 4;
constexpr std::size_t kHandleMargin = 6;

int FromEnvironment(const char* name, int otherwise) {
  const char* const text = std::getenv(name);
  return text != nullptr ? std::max(1, std::atoi(text)) : otherwise;
}

}  // namespace

class Cycles : public SystemTest {
 protected:
  // Checks that the start finds all messages of the previous cycles, and adds one message.
  void StartSubmitStop(int cycle) {
    StartService();
    ASSERT_EQ(Header().messageCount, cycle) << "found at the start";
    SubmitOverPipe(Message("cycle " + std::to_string(cycle), cycle));
    ASSERT_TRUE(WaitForMessageCount(cycle + 1, 20s));
    const StopReport report = StopService();
    longestStop = std::max(longestStop, report.duration);
  }

  std::chrono::milliseconds longestStop{0};
};

TEST_F(Cycles, EveryStartFindsWhatTheOnesBeforeItHaveStored) {
  const int cycles = FromEnvironment("TAMLOG_CYCLES", 3);
  Settings({.maxMessage = static_cast<std::uint32_t>(cycles) + 10});
  InstallService();
  int done = 0;
  try {
    for (; done < cycles && !HasFailure(); ++done) StartSubmitStop(done);
  } catch (const std::exception& fault) {
    ADD_FAILURE() << "cycle " << done << ": " << fault.what();
  }
  std::printf("cycles: %d of %d starts and stops, %d messages kept, longest stop %lld ms\n", done, cycles,
              Header().messageCount, longestStop.count());
  std::fflush(stdout);
}

TEST_F(Cycles, EveryConnectionIsServedAndLeavesNothingBehind) {
  const int connects = FromEnvironment("TAMLOG_CONNECTS", 200);
  RunService();
  const auto connectAndPing = [] {
    std::optional<ServerConnection> client = ServerConnection::Connect(20s);
    return client && client->AskForCode(RequestOf(RequestCode::Ping)) == ReplyCode::Alive;
  };
  const auto round = [&](int count) {
    std::atomic<int> left{count};
    std::atomic<int> served{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i) {
      clients.emplace_back([&] {
        while (left-- > 0) {
          if (connectAndPing()) ++served;
        }
      });
    }
    for (std::thread& client : clients) client.join();
    return served.load();
  };
  ASSERT_EQ(round(10 * kClients),
            10 * kClients);  // warms up: the first connections open what later ones reuse
  const ProcessCounts before = SettledCounts(ServiceProcess(), 10s);
  const int served = round(connects);
  EXPECT_EQ(served, connects);
  const ProcessCounts after = CountsBackTo(ServiceProcess(), before, kHandleMargin, 30s);
  EXPECT_LE(after.handles, before.handles + kHandleMargin);
  EXPECT_LE(after.threads, before.threads);
  std::printf("connects: %d of %d connections served to %d clients at once; %s before, %s after\n", served,
              connects, kClients, before.Text().c_str(), after.Text().c_str());
  std::fflush(stdout);
}
