#include "client/log/follower_memory.h"

#include <gtest/gtest.h>

#include <random>
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

// Between the two runs the log may have been filled and emptied: nothing in it would show that.
TEST_F(FollowerMemoryTest, EmptyLogAtTheBeginningIsAPossibleLoss) {
  runs.Look();
  Add("x");
  log.Reformat(20);
  Add("a");
  Add("b");
  const FollowStep step = runs.Look();
  EXPECT_EQ(runs.texts, "ab");
  EXPECT_TRUE(step.loss.Any());
  EXPECT_FALSE(step.loss.most);
}

TEST_F(FollowerMemoryTest, MessageThatWasCutOffAndComesBackIsNotReturnedAgain) {
  log = RingModel(4);
  for (const int time : {30, 10, 40, 50}) log.Submit(MakeBody(time, std::to_string(time)));
  log.Flush();  // the whole ring, backwards
  LogFollower follower;
  follower.Start(log.Snapshot());
  log.Submit(MakeBody(60, "60"));
  log.Submit(MakeBody(70, "70"));
  log.Flush();  // over 50 and 40, which the server still knows
  follower.Next(log.Snapshot(), false);
  const FollowerMemory memory = follower.Remembered(2);
  LogFollower resumed;
  resumed.Resume(memory);
  EXPECT_TRUE(resumed.Next(log.Snapshot(), true).messages.empty());
  log.Submit(MakeBody(20, "20"));
  log.Flush();  // older than all: the whole ring again, 40 and 50 among it
  const FollowStep step = resumed.Next(log.Snapshot(), false);
  EXPECT_TRUE(step.messages.empty());
  EXPECT_TRUE(step.loss.Any()) << "they may have been new";
}

TEST_F(FollowerMemoryTest, SecondCopyOfAMessageIsKnownAfterAResume) {
  log = RingModel(4);
  for (const int time : {10, 20, 30, 40}) log.Submit(MakeBody(time, std::to_string(time)));
  log.Flush();
  runs.Look();
  log.Submit(MakeBody(25, "25"));
  log.Flush();  // written after 25 once more, 30 is still in its first slot as well
  runs.Look();
  EXPECT_EQ(runs.texts, "25");
  runs.Look();
  EXPECT_EQ(runs.texts, "");
  log.Submit(MakeBody(50, "50"));
  log.Flush();
  EXPECT_FALSE(runs.Look().loss.Any());
  EXPECT_EQ(runs.texts, "50");
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
  EXPECT_FALSE(ParseMemory(text + " 1 1 1 1 1 1 1\n"));
  EXPECT_FALSE(ParseMemory("memory2 1 1 1 1 1 1 1 1 1 1 1 1 ffffffffffffffff\n"));
  EXPECT_FALSE(ParseMemory("memory2 ffffffff 1 1 1 1 1 1 1 1 1 1 1 0\n"));
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

}  // namespace
