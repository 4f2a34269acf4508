#include "client/log/log_tail.h"
#include "client/file/log_file_tail.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "client/file/log_file_scan.h"
#include "client/message/log_message_view.h"
#include "tests/support/files.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::CertainFrom;
using TamLogClient::EndsOf;
using TamLogClient::LogFileScan;
using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogClient::LogTail;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;
using Strings = std::vector<std::string>;

Strings TextsOf(const LogSnapshot& snapshot) {
  Strings texts;
  for (const std::uint32_t slot : OrderMessages(snapshot).oldestFirst) {
    texts.emplace_back(LogMessageView(snapshot.slots[slot]).Text());
  }
  return texts;
}

class LogTailTest : public testing::Test {
 protected:
  LogTailTest()
      : path((std::filesystem::path(testing::TempDir()) /
              (std::string("tail-") + testing::UnitTest::GetInstance()->current_test_info()->name()))
                 .string()) {}
  ~LogTailTest() override { std::filesystem::remove(path); }

  void Write(const RingModel& log, std::size_t cut = 0) const {
    const std::string bytes = log.FileBytes();
    TestSupport::WriteBytes(path, bytes.substr(0, bytes.size() - cut));
  }

  // The certain part of a tail of `count`, and whether it is the end of the whole log in time order.
  std::optional<Strings> Tail(const RingModel& log, std::size_t count) {
    Write(log);
    LogTail tail;
    EXPECT_TRUE(ReadLogFileTail(path, count, tail));
    const auto certain = CertainFrom(tail);
    if (!certain) return std::nullopt;
    const Strings texts = TextsOf(SnapshotOf(tail, *certain));
    const Strings all = TextsOf(log.Snapshot());
    EXPECT_LE(texts.size(), all.size());
    if (texts.size() <= all.size()) {
      EXPECT_TRUE(std::equal(texts.rbegin(), texts.rend(), all.rbegin()));
    }
    return texts;
  }

  std::string path;
};

TEST_F(LogTailTest, UsualRingGivesItsEnd) {
  RingModel log(10);
  for (int i = 0; i < 25; ++i) {
    log.Submit(MakeBody(i * 10, std::to_string(i)));
    log.Flush();
  }
  EXPECT_EQ(Tail(log, 3), (Strings{"22", "23", "24"}));
  EXPECT_EQ(Tail(log, 100)->size(), 10U);
  EXPECT_EQ(Tail(RingModel(5), 3), Strings{});
}

TEST_F(LogTailTest, RingThatRunsBackwardsIsNoTail) {
  RingModel log(10);
  for (int i = 0; i < 10; ++i) log.Submit(MakeBody(i * 10, std::to_string(i)));
  log.Flush();
  EXPECT_EQ(Tail(log, 3), std::nullopt);
  EXPECT_EQ(Tail(log, 10), std::nullopt);
}

TEST_F(LogTailTest, RingOfOneTimeIsNoTailUnlessItsNumbersRise) {
  RingModel log(5);
  for (const char* text : {"a", "b", "c", "d", "e"}) log.Submit(MakeBody(10, text));
  log.Flush();
  EXPECT_EQ(Tail(log, 5), std::nullopt);
  EXPECT_EQ(Tail(log, 2), std::nullopt);
  for (const char* text : {"f", "g", "h", "i"}) {
    log.Submit(MakeBody(10, text));
    log.Flush();
    EXPECT_EQ(Tail(log, 5), std::nullopt) << text;
    EXPECT_EQ(Tail(log, 3), std::nullopt) << text;
  }
  for (const char* text : {"j", "k"}) {
    log.Submit(MakeBody(10, text));
    log.Flush();
  }
  EXPECT_EQ(Tail(log, 5), (Strings{"g", "h", "i", "j", "k"}));
}

TEST_F(LogTailTest, WhatFollowsABackwardStretchIsCertain) {
  RingModel log(10);
  for (int i = 0; i < 10; ++i) log.Submit(MakeBody(i * 10, std::to_string(i)));
  log.Flush();
  for (int i = 10; i < 14; ++i) {
    log.Submit(MakeBody(i * 10, std::to_string(i)));
    log.Flush();
  }
  EXPECT_EQ(Tail(log, 3), (Strings{"11", "12", "13"}));
  EXPECT_EQ(Tail(log, 6), std::nullopt);  // reaches into the stretch
}

TEST_F(LogTailTest, WhateverTheServerDidATailIsTheEndInTimeOrder) {
  std::mt19937 random(21);
  const auto draw = [&random](int least, int most) {
    return std::uniform_int_distribution<int>(least, most)(random);
  };
  int certain = 0;
  for (int history = 0; history < 60 && !HasFailure(); ++history) {
    RingModel log(draw(1, 200));
    int now = 1000;
    int serial = 0;
    for (int flush = 0; flush < 60; ++flush) {
      const bool burst = draw(0, 19) == 0;
      for (int i = burst ? draw(1, 300) : draw(1, 5); i > 0; --i) {
        now += draw(1, 3);
        const int time = draw(0, 5) == 0 ? std::max(0, now - draw(1, 50)) : now;
        // Times differ, so that the order is one: a second message of the same time is not submitted.
        log.Submit(MakeBody(time * 4 + serial % 4, std::to_string(serial)));
        ++serial;
      }
      log.Flush();
      if (flush % 6 == 0) {
        const auto tail = Tail(log, static_cast<std::size_t>(draw(1, 40)));
        if (tail && !tail->empty()) ++certain;
      }
    }
  }
  EXPECT_GT(certain, 100);  // a tail suffices for most reads
}

TEST_F(LogTailTest, FilesThatAreNotAsTheyShouldBeAreLeftToTheWholeReading) {
  RingModel log(10);
  log.Submit(MakeBody(1, "a"));
  log.Flush();
  LogTail tail;
  Write(log, 1);
  EXPECT_FALSE(ReadLogFileTail(path, 3, tail));
  EXPECT_FALSE(ReadLogFileTail(path + "missing", 3, tail));
  EXPECT_FALSE(LogFileScan().Open(path));
  std::ofstream(path, std::ios::binary) << "short";
  EXPECT_FALSE(ReadLogFileTail(path, 3, tail));
}

// Compares the ends that the tail of one message shows with the order of the whole log.
TEST_F(LogTailTest, EndsAreThoseOfTheWholeLogOrUnknown) {
  const auto expectEnds = [this](const RingModel& log, bool known) {
    Write(log);
    LogTail tail;
    ASSERT_TRUE(ReadLogFileTail(path, 1, tail));
    const auto ends = EndsOf(tail);
    ASSERT_EQ(ends.has_value(), known);
    if (!known) return;
    const Strings all = TextsOf(log.Snapshot());
    EXPECT_EQ(LogMessageView(*ends->oldest).Text(), all.front());
    EXPECT_EQ(LogMessageView(*ends->newest).Text(), all.back());
  };
  RingModel log(50);
  expectEnds(log, false);
  for (int i = 0; i < 120; ++i) {
    log.Submit(MakeBody(i * 10, std::to_string(i)));
    log.Flush();
    expectEnds(log, true);
  }
  RingModel inserted(50);
  for (const int time : {10, 30, 50, 20, 40, 5}) {
    inserted.Submit(MakeBody(time, std::to_string(time)));
    inserted.Flush();
    expectEnds(inserted, true);
  }
  // As many at once as there is room for: the ring then runs backwards.
  for (int i = 200; i < 260; ++i) log.Submit(MakeBody(i * 10, std::to_string(i)));
  log.Flush();
  expectEnds(log, false);
  for (int i = 300; i < 320; ++i) {
    log.Submit(MakeBody(i * 10, std::to_string(i)));
    log.Flush();
    expectEnds(log, false);
  }
  // When the first two have equal times, the ends are unknown.
  RingModel equal(50);
  for (int i = 0; i < 10; ++i) equal.Submit(MakeBody(7, std::to_string(i)));
  equal.Flush();
  expectEnds(equal, false);
}

}  // namespace
