#include "client/log/follower_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>

#include "client/log/log_follower.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::FollowerMemory;
using TamLogClient::FollowStep;
using TamLogClient::FormatMemory;
using TamLogClient::LogFollower;
using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogClient::ParseMemory;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;

// Every snapshot is read by a new follower that knows the earlier ones from a text only.
class Runs {
 public:
  Runs(RingModel& ring, std::size_t mostMessages) : log(ring), most(mostMessages) {}

  FollowStep Look() {
    const LogSnapshot snapshot = log.Snapshot();
    LogFollower follower;
    FollowStep step;
    if (text.empty()) {
      follower.Start(snapshot);
    } else {
      const auto memory = ParseMemory(text);
      EXPECT_TRUE(memory) << text;
      if (!memory) return step;
      follower.Resume(*memory);
      step = follower.Next(snapshot, true);
    }
    text = FormatMemory(follower.Remembered(most));
    texts.clear();
    for (const auto& message : step.messages) {
      texts += LogMessageView(snapshot.slots[message.slot]).Text();
    }
    return step;
  }

  std::string text;   // the memory
  std::string texts;  // the result of the last snapshot

 private:
  RingModel& log;
  std::size_t most;
};

class FollowerMemoryTest : public testing::Test {
 protected:
  void Add(const std::string& letters) {
    for (const char letter : letters) log.Submit(MakeBody(now += 10, std::string(1, letter)));
    log.Flush();
  }

  RingModel log{20};
  Runs runs{log, 100};
  int now = 0;
};

TEST_F(FollowerMemoryTest, LaterRunGivesWhatIsNew) {
  Add("abc");
  runs.Look();
  EXPECT_FALSE(runs.Look().loss.Any());
  EXPECT_EQ(runs.texts, "");
  Add("de");
  EXPECT_FALSE(runs.Look().loss.Any());
  EXPECT_EQ(runs.texts, "de");
}

TEST_F(FollowerMemoryTest, LateMessageIsGivenAndNothingTwice) {
  Add("abc");
  runs.Look();
  log.Submit(MakeBody(15, "L"));
  log.Flush();
  EXPECT_FALSE(runs.Look().loss.Any());
  EXPECT_EQ(runs.texts, "L");
}

TEST_F(FollowerMemoryTest, EmptyLogAtTheBeginningIsNoLoss) {
  runs.Look();
  Add("a");
  Add("b");
  EXPECT_FALSE(runs.Look().loss.Any());
  EXPECT_EQ(runs.texts, "ab");
}

TEST_F(FollowerMemoryTest, ClearIsReported) {
  Add("abc");
  runs.Look();
  log.Clear();
  Add("d");
  const FollowStep step = runs.Look();
  EXPECT_TRUE(step.cleared);
  EXPECT_TRUE(step.loss.Any());
  EXPECT_EQ(runs.texts, "d");
}

TEST_F(FollowerMemoryTest, OlderMessagesThanTheRememberedOnesAreKnownByTheirNumbers) {
  Runs brief(log, 3);
  Add("abcdefgh");
  brief.Look();
  Add("ij");
  EXPECT_FALSE(brief.Look().loss.Any());
  EXPECT_EQ(brief.texts, "ij");
  log.Submit(MakeBody(15, "L"));  // older than all that are remembered: new messages cannot be recognized
  log.Flush();
  const FollowStep step = brief.Look();
  EXPECT_TRUE(step.loss.Any());
  EXPECT_FALSE(step.loss.Exact());
  EXPECT_EQ(brief.texts, "");
}

TEST_F(FollowerMemoryTest, TextGoesBothWaysAndNothingElseIsAccepted) {
  Add("abc");
  runs.Look();
  const std::string text = runs.text;
  const auto memory = ParseMemory(text);
  ASSERT_TRUE(memory);
  EXPECT_EQ(memory->known.size(), 3U);
  EXPECT_EQ(memory->header.maxMessages, 20);
  for (std::size_t i = 0; i < text.size(); ++i) EXPECT_FALSE(ParseMemory(text.substr(0, i))) << i;
  EXPECT_FALSE(ParseMemory(text + "\n"));
  EXPECT_FALSE(ParseMemory(text + " 1 1 1 1\n"));
  EXPECT_FALSE(ParseMemory("memory1 1 1 1 1 1 1 1 1 1 1 1 ffffffffffffffff\n"));
  EXPECT_FALSE(ParseMemory("memory1 ffffffff 1 1 1 1 1 1 1 1 1 1 0\n"));
  std::mt19937 random(7);
  for (int i = 0; i < 20000; ++i) {
    std::string changed = text;
    changed[random() % changed.size()] = static_cast<char>(random());
    const auto parsed = ParseMemory(changed);
    if (parsed) {
      EXPECT_EQ(FormatMemory(*parsed), changed);
    }
  }
}

// Random histories over runs that know each other by their memory only.
class RandomRuns {
 public:
  RandomRuns(unsigned seed, bool brief) : random(seed), log(Draw(1, 30)) {
    most = brief ? static_cast<std::size_t>(Draw(1, 8)) : 1000;
  }

  void Run() {
    Runs runs(log, most);
    runs.Look();
    for (int i = 0; i < 60 && !testing::Test::HasFailure(); ++i) {
      for (int k = Draw(0, 3); k > 0; --k) Operate();
      Check(runs.Look());
    }
  }

 private:
  int Draw(int least, int bound) { return std::uniform_int_distribution<int>(least, bound)(random); }

  void Operate() {
    const int kind = Draw(0, 99);
    if (kind >= 97) return log.Clear();
    const int count = kind >= 90 ? Draw(1, 35) : Draw(1, 4);
    for (int i = 0; i < count; ++i) {
      now += Draw(0, 3);
      const int time = Draw(0, 3) == 0 ? std::max(0, now - Draw(1, 40)) : now;
      log.Submit(MakeBody(time, std::to_string(serial++)));
    }
    log.Flush();
  }

  void Check(const FollowStep& step) {
    const LogSnapshot snapshot = log.Snapshot();
    for (const auto& message : step.messages) {
      EXPECT_TRUE(given.insert(log.MessageIn(message.slot)).second) << "given twice";
    }
    const std::size_t missing = log.EverInFile().size() - given.size();
    const std::size_t missed = missing - std::min(missing, missingBefore);
    if (step.loss.Exact()) {
      EXPECT_EQ(missed, step.loss.least);
    }
    EXPECT_TRUE(missed == 0 || step.loss.Any()) << "silent loss of " << missed;
    missingBefore = missing;
  }

  std::mt19937 random;
  RingModel log;
  std::size_t most = 0;
  int now = 100;
  int serial = 0;
  std::size_t missingBefore = 0;
  std::set<std::size_t> given;
};

TEST(FollowerMemoryHistories, EveryMessageOnceOrItsLossReported) {
  for (unsigned seed = 0; seed < 150 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    RandomRuns(seed, false).Run();
  }
}

TEST(FollowerMemoryHistories, LittleMemoryMeansMoreLossesReportedAndNoneSilent) {
  for (unsigned seed = 0; seed < 150 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    RandomRuns(seed, true).Run();
  }
}

}  // namespace
