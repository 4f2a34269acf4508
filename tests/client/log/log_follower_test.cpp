#include "client/log/log_follower.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

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

// Random histories: the follower's results are compared with what happened.
class RandomHistory {
 public:
  RandomHistory(unsigned seed, bool duplicateBytes) : random(seed), duplicates(duplicateBytes) {
    capacity = duplicates ? Draw(8, 20) : Draw(1, 12);
    log = RingModel(capacity);
    follower.Start(log.Snapshot());
  }

  void Run() {
    for (int i = 0; i < 120 && !testing::Test::HasFailure(); ++i) {
      const int operations = Draw(1, 4);
      bool reopened = false;
      for (int k = 0; k < operations; ++k) reopened = Operate() || reopened;
      Look(reopened);
    }
    EXPECT_GT(looks, 0);
  }

 private:
  int Draw(int least, int most) { return std::uniform_int_distribution<int>(least, most)(random); }

  void SubmitSome(int count) {
    for (int i = 0; i < count; ++i) {
      now += duplicates ? Draw(1, 2) : Draw(0, 3);
      const int time = Draw(0, 3) == 0 ? std::max(0, now - Draw(1, duplicates ? 3 : 30)) : now;
      const std::string text = duplicates ? "same" : std::to_string(serial++);
      log.Submit(MakeBody(time, text));
    }
  }

  // True when the log was closed and opened again.
  bool Operate() {
    const int kind = Draw(0, 99);
    // Equal bytes that leave and come back cannot be distinguished from new ones once the ring runs
    // backwards, so those histories stay below the capacity.
    if (kind < 80) {
      SubmitSome(duplicates ? Draw(0, std::max(1, capacity / 4)) : Draw(0, 3));
      log.Flush();
    } else if (kind < 92) {
      SubmitSome(duplicates ? 1 : capacity + Draw(-1, 3));
      log.Flush();
    } else if (kind < 96 && !duplicates) {
      log.Clear();
    } else if (!duplicates) {
      if (Draw(0, 1) == 0) capacity = Draw(1, 12);
      log.Reformat(capacity);
      return true;
    }
    return false;
  }

  void Look(bool reopened) {
    const LogSnapshot snapshot = log.Snapshot();
    const FollowStep step = follower.Next(snapshot, reopened);
    std::size_t fresh = 0;
    for (const auto& message : step.messages) {
      if (!duplicates) {
        EXPECT_TRUE(printed.insert(log.MessageIn(message.slot)).second) << "given twice";
      }
      ++fresh;
    }
    given += fresh;
    ++looks;
    if (!duplicates) {
      for (const std::uint32_t slot : snapshot.RingOrder()) {
        EXPECT_EQ(printed.count(log.MessageIn(slot)), 1U) << "in the log, but not given";
      }
    }
    const std::size_t missing = log.EverInFile().size() - given;
    EXPECT_GE(log.EverInFile().size(), given);
    const std::size_t missed = missing - std::min(missing, missingBefore);
    // A new log that was filled and formatted again between two snapshots leaves no trace.
    const bool twiceEmptied = reopened && emptyBefore && snapshot.header.messageCount == 0;
    emptyBefore = snapshot.header.messageCount == 0;
    if (step.loss.Exact() && !twiceEmptied) {
      EXPECT_EQ(missed, step.loss.least) << "cleared: " << step.cleared;
    } else {
      EXPECT_GE(missed, step.loss.least);
    }
    EXPECT_TRUE(missed == 0 || step.loss.Any() || step.cleared || twiceEmptied) << "silent loss";
    missingBefore = missing;
  }

  std::mt19937 random;
  bool duplicates;
  int capacity = 1;
  int now = 100;
  int serial = 0;
  int looks = 0;
  bool emptyBefore = true;
  std::size_t given = 0;
  std::size_t missingBefore = 0;
  std::set<std::size_t> printed;
  RingModel log{1};
  LogFollower follower;
};

TEST(LogFollowerHistories, EveryMessageOnceOrItsLossReported) {
  for (unsigned seed = 0; seed < 200 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    RandomHistory(seed, false).Run();
  }
}

TEST(LogFollowerHistories, EqualMessagesAreCounted) {
  for (unsigned seed = 0; seed < 200 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    RandomHistory(seed, true).Run();
  }
}

}  // namespace
