#include "client/log/log_follower.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

#include "client/log/follower_memory.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::FollowStep;
using TamLogClient::LogFollower;
using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;
using Strings = std::vector<std::string>;

// A log, a follower, and its result for the last snapshot.
class LogFollowerTest : public testing::Test {
 protected:
  void Submit(const std::string& text, std::int32_t time) { log.Submit(MakeBody(time, text)); }

  // Submits a message for each of `times`, each with a flush of its own.
  void SubmitEach(const std::vector<std::int32_t>& times) {
    for (const std::int32_t time : times) {
      Submit(std::to_string(time), time);
      log.Flush();
    }
  }

  void Look(bool reopened = false) {
    const LogSnapshot snapshot = log.Snapshot();
    step = follower.Next(snapshot, reopened);
    texts.clear();
    late.clear();
    for (const auto& message : step.messages) {
      texts.emplace_back(LogMessageView(snapshot.slots[message.slot]).Text());
      if (message.late) late.push_back(texts.back());
    }
  }

  void Begin(std::int32_t capacity) {
    log = RingModel(capacity);
    follower.Start(log.Snapshot());
  }

  RingModel log{8};
  LogFollower follower;
  FollowStep step;
  Strings texts;
  Strings late;
};

TEST_F(LogFollowerTest, WhatWasThereAtTheStartIsNotNew) {
  Submit("a", 1);
  log.Flush();
  follower.Start(log.Snapshot());
  Look();
  EXPECT_TRUE(texts.empty());
  Submit("b", 2);
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"b"}));
  EXPECT_FALSE(step.loss.Any());
}

// An insertion into what a full rewrite of eight messages has left: 6 and 7 are there twice.
RingModel LogWithSecondCopies() {
  RingModel log(8);
  for (int i = 1; i <= 8; ++i) log.Submit(MakeBody(10 * i, std::to_string(i)));
  log.Flush();
  log.Submit(MakeBody(55, "inserted"));
  log.Flush();
  return log;
}

TEST_F(LogFollowerTest, CountersThatNoAppendsLeadToShowAnotherRunOfTheLog) {
  log = RingModel(8);
  SubmitEach({1});
  LogSnapshot before = log.Snapshot();
  log = RingModel(8);
  for (int i = 1; i <= 8; ++i) Submit(std::to_string(i), 10 * i);
  log.Flush();
  SubmitEach({35, 45});  // 6 is there twice, and eleven numbers were assigned
  before.header.rewriteCount = log.Snapshot().header.rewriteCount;
  follower.Start(before);
  Look();
  EXPECT_EQ(texts, (Strings{"35", "4", "45", "5", "6", "7", "8"})) << "each once";
  EXPECT_EQ(step.loss.most, std::nullopt);
}

TEST_F(LogFollowerTest, MoreRewritesThanChangesShowAnotherRunOfTheLog) {
  Begin(4);
  SubmitEach({1, 2, 3, 4, 5, 6, 7, 8});
  LogSnapshot before = log.Snapshot();
  log = RingModel(4);
  SubmitEach({11, 12, 13, 14, 15, 16, 17, 18, 19, 21, 20});
  for (const int time : {30, 40, 50, 60}) Submit(std::to_string(time), time);
  log.Flush();
  before.header.changeCount = log.Snapshot().header.changeCount - 1;
  follower.Next(before, false);
  Look();
  EXPECT_EQ(texts, (Strings{"30", "40", "50", "60"}));
  SubmitEach({70});  // over 60, which the next rewrite brings back
  Look();
  SubmitEach({10});
  Look();
  EXPECT_EQ(texts, Strings{});
}

// A full rewrite assigns no numbers.
TEST_F(LogFollowerTest, OneChangeThatRewroteAllAndAssignedNumbersShowsAnotherRunOfTheLog) {
  Begin(4);
  SubmitEach({1});
  Look();
  log.Clear();
  Look();
  log = RingModel(4);
  const std::vector<std::int32_t> flushes[] = {{10, 20, 30}, {40, 50, 60, 70}, {80, 90, 100, 110}};
  for (const auto& times : flushes) {
    for (const int time : times) Submit(std::to_string(time), time);
    log.Flush();
  }
  Look();
  EXPECT_EQ(texts, (Strings{"80", "90", "100", "110"}));
  EXPECT_EQ(step.loss.most, std::nullopt);
  SubmitEach({120});  // over 110, which the next rewrite brings back
  Look();
  SubmitEach({95});
  Look();
  EXPECT_EQ(texts, Strings{"95"});
}

TEST_F(LogFollowerTest, TwinThatTheNumbersProveIsNoSecondCopyOfTheFirst) {
  Begin(7);
  SubmitEach({1, 2, 3});
  for (const char* const text : {"a", "b", "c", "d", "e", "f", "g"}) Submit(text, 10);
  log.Flush();
  Look();
  Submit("h", 10);
  log.Flush();
  Submit("i", 20);
  log.Flush();
  Submit("d", 10);
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"h", "d", "i"}));
  SubmitEach({9});  // older than all: the server writes the whole ring again, and both of them in it
  Look();
  EXPECT_EQ(texts, Strings{});
}

TEST_F(LogFollowerTest, ATwinOfAMessageThatStoodTwiceAtTheStartMayBeLost) {
  log = LogWithSecondCopies();
  follower.Start(log.Snapshot());
  Submit("6", 60);
  Submit("older", 57);
  for (const int time : {90, 100, 110}) Submit("new", time);
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"older", "new", "new", "new"}));
  EXPECT_GE(step.loss.most.value_or(1), 1U);
}

TEST_F(LogFollowerTest, OneMessageWithItsNumberProvesNothingWhereAnotherNumberHasAnotherMessage) {
  for (const bool resumed : {false, true}) {
    log = RingModel(8);
    SubmitEach({1, 2});
    follower.Start(log.Snapshot());
    if (resumed) {
      const auto memory = follower.Remembered(100);
      follower = {};
      follower.Resume(memory);
    }
    log = RingModel(8);
    SubmitEach({1, 3});
    Look(true);
    EXPECT_EQ(texts, (Strings{"3"}));
    EXPECT_EQ(step.loss.most, std::nullopt);
  }
}

TEST_F(LogFollowerTest, OverwrittenMessagesAreCountedExactly) {
  Begin(4);
  for (int i = 0; i < 11; ++i) {
    Submit(std::to_string(i), i);
    log.Flush();
  }
  Look();
  EXPECT_EQ(texts, (Strings{"7", "8", "9", "10"}));
  EXPECT_TRUE(step.loss.Exact());
  EXPECT_EQ(step.loss.least, 7U);
}

TEST_F(LogFollowerTest, RenumberedMessagesAreNotGivenAgain) {
  Begin(8);
  Submit("a", 1);
  Submit("c", 9);
  log.Flush();
  Look();
  Submit("b", 5);
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"b"}));
  EXPECT_EQ(late, (Strings{"b"}));
  EXPECT_FALSE(step.loss.Any());
}

TEST_F(LogFollowerTest, MessagesWithoutNumberAreGivenOnce) {
  Begin(4);
  Submit("a", 1);
  log.Flush();
  Look();
  for (int i = 2; i <= 4; ++i) Submit(std::to_string(i), i);
  log.Submit(MakeBody(0, "old"));  // oldest of all: the whole ring is written again
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"2", "3", "4"}));
  Look();
  EXPECT_TRUE(texts.empty());
}

TEST_F(LogFollowerTest, MessageThatComesBackFromTheServersMemoryIsNotGivenAgain) {
  Begin(4);
  for (int i = 1; i <= 4; ++i) Submit(std::to_string(i), i * 10);
  log.Flush();  // the whole ring, backwards: slot 0 holds the newest
  Look();
  EXPECT_EQ(texts.size(), 4U);
  Submit("5", 50);
  log.Flush();  // overwrites 4, which the server still knows
  Look();
  EXPECT_EQ(texts, (Strings{"5"}));
  Submit("4b", 45);
  log.Flush();  // 5 and 4b are written again, and nothing else
  Look();
  EXPECT_EQ(texts, (Strings{"4b"}));
  EXPECT_FALSE(step.loss.Any());
  Submit("3b", 35);
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"3b"}));
}

TEST_F(LogFollowerTest, EqualMessagesAreGivenAsOftenAsTheyCame) {
  Begin(8);
  Submit("same", 5);
  Submit("same", 5);
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"same", "same"}));
  Submit("newer", 9);
  log.Flush();
  Look();
  Submit("same", 5);
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"same"}));
}

TEST_F(LogFollowerTest, ClearIsReportedAndMessagesBeforeItAreCounted) {
  Begin(8);
  Submit("a", 1);
  log.Flush();
  Look();
  Submit("b", 2);
  Submit("c", 3);
  log.Flush();
  log.Clear();
  Submit("d", 4);
  log.Flush();
  Look();
  EXPECT_TRUE(step.cleared);
  EXPECT_EQ(texts, (Strings{"d"}));
  EXPECT_TRUE(step.loss.Exact());
  EXPECT_EQ(step.loss.least, 2U);
}

TEST_F(LogFollowerTest, ReformatStartsANewLog) {
  Begin(8);
  Submit("a", 1);
  log.Flush();
  Look();
  log.Reformat(16);
  Submit("b", 2);
  log.Flush();
  Look(true);
  EXPECT_TRUE(step.cleared);
  EXPECT_EQ(texts, (Strings{"b"}));
}

TEST_F(LogFollowerTest, ReopeningAnUnchangedLogGivesNothingAgain) {
  Begin(8);
  Submit("a", 1);
  Submit("b", 2);
  log.Flush();
  Look();
  Look(true);
  EXPECT_TRUE(texts.empty());
  EXPECT_FALSE(step.loss.Any());
  Submit("c", 3);
  log.Flush();
  Look(true);
  EXPECT_EQ(texts, (Strings{"c"}));
  EXPECT_FALSE(step.loss.Any());
}

TEST_F(LogFollowerTest, EqualCountersAfterAReopeningProveNothing) {
  Begin(8);
  Submit("a", 1);
  log.Flush();
  Look();
  log.Reformat(8);
  Submit("x", 2);
  log.Flush();  // the counters stand as before
  Look(true);
  EXPECT_EQ(texts, (Strings{"x"}));
}

TEST_F(LogFollowerTest, BurstThatReplacesTheRingMayHaveLostUncountedMessages) {
  Begin(4);
  Submit("a", 1);
  log.Flush();
  Look();
  for (int i = 0; i < 9; ++i) Submit(std::to_string(i), 10 + i);
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"5", "6", "7", "8"}));
  EXPECT_TRUE(step.loss.Any());
  EXPECT_FALSE(step.loss.Exact());
}

TEST_F(LogFollowerTest, InsertionsInAFullRingRaiseNoFalseAlarm) {
  Begin(20);
  for (int i = 0; i < 20; ++i) {
    Submit(std::to_string(i), i * 10);
    log.Flush();
  }
  Look();
  for (const int time : {185, 200, 195, 210}) {
    Submit("new" + std::to_string(time), time);
    log.Flush();
  }
  Look();
  EXPECT_EQ(texts, (Strings{"new185", "new195", "new200", "new210"}));
  EXPECT_EQ(late, (Strings{"new185"}));
  EXPECT_FALSE(step.loss.Any());
}

TEST_F(LogFollowerTest, TwinOfAKnownMessageIsReturnedWhereTheNumbersProveIt) {
  log = RingModel(4);
  for (const int time : {10, 30, 20, 40}) Submit(std::to_string(time), time);
  log.Flush();
  follower.Start(log.Snapshot());
  Submit("30", 30);
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"30"}));
  EXPECT_FALSE(step.loss.Any());
}

TEST_F(LogFollowerTest, TwinThatLooksLikeTheKnownMessageIsAPossibleLoss) {
  log = RingModel(2);
  Submit("a", 10);
  Submit("b", 20);
  log.Flush();  // without numbers
  follower.Start(log.Snapshot());
  Submit("a", 10);
  Submit("b", 20);
  log.Flush();  // twins in their places: the file has the same slots as before
  Look();
  EXPECT_TRUE(step.loss.Any());
}

TEST_F(LogFollowerTest, TwinAfterAClearIsNew) {
  Begin(8);
  Submit("a", 1);
  Submit("b", 2);
  log.Flush();
  Look();
  log.Clear();
  Submit("a", 1);
  log.Flush();
  Look();
  EXPECT_TRUE(step.cleared);
  EXPECT_EQ(texts, (Strings{"a"}));
  EXPECT_FALSE(step.loss.Any());
}

TEST_F(LogFollowerTest, TwinInANewLogDoesNotProveThatNothingWasLost) {
  Begin(8);
  Submit("a", 1);
  Submit("b", 2);
  log.Flush();
  Look();
  Submit("lost", 3);
  log.Flush();
  log.Reformat(8);
  Submit("c", 4);
  log.Flush();
  Submit("b", 2);
  Submit("d", 5);
  log.Flush();
  Look(true);
  EXPECT_TRUE(step.loss.Any());
  EXPECT_FALSE(step.loss.Exact());
}

TEST_F(LogFollowerTest, EmptyBeforeAndAfterARestartIsAnUnknownLoss) {
  Begin(4);
  Submit("lost", 1);
  log.Flush();
  log.Reformat(4);
  Look(true);
  EXPECT_TRUE(texts.empty());
  EXPECT_TRUE(step.loss.Any());
  EXPECT_FALSE(step.loss.most);
}

TEST_F(LogFollowerTest, RestartThatNobodyNoticedIsSeenByTheMessages) {
  Begin(4);
  Submit("a", 1);
  log.Flush();
  Look();
  Submit("lost", 2);
  log.Flush();
  log.Reformat(4);
  Submit("x", 3);
  log.Flush();
  Submit("y", 4);
  log.Flush();  // the counters go on as if nothing had happened
  Look();
  EXPECT_EQ(texts, (Strings{"x", "y"}));
  EXPECT_TRUE(step.loss.Any());
}

TEST_F(LogFollowerTest, LateMeansDatedBeforeTheMessageReturnedJustBefore) {
  Begin(20);
  Submit("100", 100);
  log.Flush();
  Look();
  Submit("50", 50);
  Submit("60", 60);
  Submit("110", 110);
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"50", "60", "110"}));
  EXPECT_EQ(late, (Strings{"50"}));
  Submit("105", 105);
  log.Flush();
  Look();
  EXPECT_EQ(late, (Strings{"105"}));
  Submit("107", 107);
  log.Flush();
  Look();
  EXPECT_TRUE(late.empty());
}

TEST_F(LogFollowerTest, InsertionIntoAnEmptyLogLosesNothing) {
  Begin(3);
  Submit("m0", 10);
  log.Flush();
  Submit("m1", 5);
  log.Flush();
  Look();
  EXPECT_EQ(texts, (Strings{"m1", "m0"}));
  EXPECT_FALSE(step.loss.Any());
}

TEST_F(LogFollowerTest, KnownMessagesThatHideBehindAppendedOnesAreNoLoss) {
  Begin(4);
  SubmitEach({10, 20, 30, 40, 50});
  Look();
  Submit("too old", 1);
  log.Flush();  // the whole ring, backwards: slot 0 holds 50
  Submit("60", 60);
  log.Flush();  // overwrites 50
  Look();
  EXPECT_EQ(texts, (Strings{"60"}));
  EXPECT_FALSE(step.loss.Any());
}

TEST_F(LogFollowerTest, AppendedMessageThatARewriteHidIsCounted) {
  Begin(4);
  SubmitEach({10, 20, 30, 40, 50});
  Look();
  SubmitEach({60});
  Submit("too old", 1);
  log.Flush();
  SubmitEach({70});  // overwrites 60
  Look();
  EXPECT_EQ(texts, (Strings{"70"}));
  EXPECT_EQ(step.loss.least, 1U);
  ASSERT_TRUE(step.loss.most);
  EXPECT_EQ(*step.loss.most, 2U);
}

TEST_F(LogFollowerTest, MessageThatCameBackIsNoLossOfAnother) {
  Begin(6);
  SubmitEach({10, 20, 30, 40, 50, 60, 70});
  Look();
  Submit("too old", 1);
  Submit("80", 80);
  log.Flush();
  SubmitEach({90});  // overwrites 80, which the server still holds
  Look();
  EXPECT_EQ(texts, (Strings{"90"}));
  EXPECT_TRUE(step.loss.Any());
  SubmitEach({75});
  Look();
  EXPECT_EQ(texts, (Strings{"75", "80"}));
  EXPECT_FALSE(step.loss.Any());
}

TEST_F(LogFollowerTest, TwinsOfOneTimeDoNotFillTheMemory) {
  constexpr std::int32_t kCapacity = 20;
  Begin(kCapacity);
  for (int round = 0; round < 50; ++round) {
    for (int i = 0; i < kCapacity; ++i) Submit("burst " + std::to_string(round * kCapacity + i), 1);
    log.Flush();
    Submit("appended " + std::to_string(round), 1);
    log.Flush();
    Look();
  }
  EXPECT_LE(follower.Remembered(100000).known.size(), 3U * kCapacity);
}

TEST_F(LogFollowerTest, LossAmongInsertionsIsCountedByThePlaceOfTheNextSlot) {
  Begin(5);
  for (int i = 0; i < 5; ++i) {
    Submit(std::to_string(i), i * 10);
    log.Flush();
  }
  Look();
  for (const int time : {45, 60, 70, 80, 75, 90}) {
    Submit("new" + std::to_string(time), time);
    log.Flush();
  }
  Look();
  EXPECT_EQ(texts, (Strings{"new60", "new70", "new75", "new80", "new90"}));
  EXPECT_TRUE(step.loss.Exact());
  EXPECT_EQ(step.loss.least, 1U);
}

// Any process that maps the file may write its header. Under the sanitizers.
TEST(LogFollowerHostile, AnyHeaderIsSurvived) {
  constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t kNumbers[] = {kLowest, -1, 0, 1, 2, 4, 5, kHighest};
  constexpr std::uint64_t kCounters[] = {0, 1, 2, 3, 8, std::numeric_limits<std::uint64_t>::max()};
  std::mt19937 random(5);
  LogFollower follower;
  for (int i = 0; i < 20000; ++i) {
    LogSnapshot snapshot;
    snapshot.header.maxMessages = kNumbers[random() % 8];
    snapshot.header.messageCount = kNumbers[random() % 8];
    snapshot.header.nextSlot = kNumbers[random() % 8];
    snapshot.header.changeCount = kCounters[random() % 6];
    snapshot.header.rewriteCount = kCounters[random() % 6];
    snapshot.header.nextSequence = kCounters[random() % 6];
    snapshot.slots.resize(random() % 6);
    for (LogMessage& slot : snapshot.slots) {
      slot.sequence = kCounters[random() % 6];
      slot.body = MakeBody(static_cast<std::int32_t>(random() % 4), "x");
    }
    if (random() % 50 == 0) follower.Start(snapshot);
    if (random() % 10 == 0) {
      const auto memory = TamLogClient::ParseMemory(FormatMemory(follower.Remembered(random() % 4)));
      ASSERT_TRUE(memory);
      follower.Resume(*memory);
    }
    const FollowStep result = follower.Next(snapshot, random() % 2 == 0);
    for (const auto& message : result.messages) ASSERT_LT(message.slot, snapshot.slots.size());
    ASSERT_TRUE(!result.loss.most || *result.loss.most >= result.loss.least);
  }
}

}  // namespace
