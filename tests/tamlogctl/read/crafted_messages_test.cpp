// Messages that a sender has crafted so that a weak hash of their bytes is the same for all: verbs that
// recognize messages by their bytes take about the time that they take for ordinary messages.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>

#include "tests/support/files.h"
#include "tests/support/program.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"

namespace {

using std::chrono::steady_clock;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;

constexpr std::int32_t kMessages = 20000;

class CraftedMessages : public testing::Test {
 protected:
  // The first two words of a crafted message meet in the same state of a multiplicative hash.
  static LogMessageBody Message(std::uint64_t number, bool crafted) {
    constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
    constexpr std::uint64_t kStart = 0xC2B2AE3D27D4EB4FU;
    const std::uint64_t state = (kStart ^ number) * kFactor;
    const std::uint64_t second = crafted ? state ^ (state >> 29U) : 0;
    LogMessageBody body = MakeBody(7, "crafted");
    std::memcpy(body.origin, &number, sizeof(number));
    std::memcpy(body.timestamp, &second, sizeof(second));
    return body;
  }

  // Saves a log of such messages, and the same with a late one, which makes all known messages be compared.
  void Save(const std::string& name, bool crafted) {
    RingModel log(kMessages + 2);
    for (std::int32_t i = 0; i < kMessages; ++i) {
      LogMessageBody body = Message(static_cast<std::uint64_t>(i), crafted);
      if (!crafted) body = MakeBody(i, "ordinary " + std::to_string(i));
      bodies.push_back(body);
    }
    std::stable_sort(bodies.begin(), bodies.end(),
                     [](const LogMessageBody& left, const LogMessageBody& right) {
                       return TimeKey(left) < TimeKey(right);
                     });
    for (const LogMessageBody& body : bodies) log.Submit(body);
    log.Flush();
    TestSupport::WriteBytes(folder.File(name), log.FileBytes());
    LogMessageBody late = bodies.front();
    late.type ^= 1U;
    log.Submit(late);
    log.Flush();
    TestSupport::WriteBytes(folder.File("late-" + name), log.FileBytes());
    bodies.clear();
  }

  // Returns the seconds that the program takes, the shortest of three times.
  double SecondsOf(const std::string& arguments, const std::string& prepare = "true") {
    double shortest = 1e9;
    for (int i = 0; i < 3; ++i) {
      TestSupport::RunIn(folder.Path(), prepare);
      const auto begin = steady_clock::now();
      const auto outcome = TestSupport::RunIn(folder.Path(), "'" TAMLOGCTL "' " + arguments);
      EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
      shortest = std::min(shortest, std::chrono::duration<double>(steady_clock::now() - begin).count());
    }
    return shortest;
  }

  // With room for a busy machine; a table whose entries all collide takes a hundred times as long.
  static void ExpectAlike(double crafted, double ordinary) { EXPECT_LE(crafted, 4 * ordinary + 2); }

  TestSupport::TempDir folder;
  std::vector<LogMessageBody> bodies;
};

TEST_F(CraftedMessages, TakeAFollowerTheTimeOfOrdinaryOnes) {
  Save("crafted.dat", true);
  Save("ordinary.dat", false);
  const auto seconds = [&](const std::string& name) {
    TestSupport::RunIn(folder.Path(), "'" TAMLOGCTL "' show --quiet --file " + name + " --cursor-file first");
    return SecondsOf("show --file late-" + name + " --cursor-file seen", "cp first seen");
  };
  const double ordinary = seconds("ordinary.dat");
  TestSupport::RunIn(folder.Path(), "rm first seen");
  ExpectAlike(seconds("crafted.dat"), ordinary);
}

TEST_F(CraftedMessages, TakeARepairOfUniqueMessagesTheTimeOfOrdinaryOnes) {
  Save("crafted.dat", true);
  Save("ordinary.dat", false);
  const double ordinary = SecondsOf("repair ordinary.dat ordinary.new --unique", "rm -f ordinary.new");
  ExpectAlike(SecondsOf("repair crafted.dat crafted.new --unique", "rm -f crafted.new"), ordinary);
}

}  // namespace
