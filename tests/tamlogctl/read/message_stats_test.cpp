#include "tamlogctl/read/message_stats.h"

#include <gtest/gtest.h>

#include "tests/support/ring_model.h"

namespace {

using TamLogClient::LogMessageView;
using TamLogClient::TimeWords;
using TamLogCtl::MessageStats;
using TamLogTest::MakeBody;

class MessageStatsTest : public testing::Test {
 protected:
  void Add(std::int32_t milliseconds, const char* source, std::uint32_t type) {
    LogMessage message{};
    message.body = MakeBody(milliseconds, "text", source, type);
    stats.Add(LogMessageView(message));
  }

  MessageStats stats;
};

TEST_F(MessageStatsTest, CountsBySourceAndType) {
  Add(0, "Laser", 1);
  Add(0, "Camera", 0);
  Add(0, "Laser", 3);
  Add(0, "Laser", 9);
  EXPECT_EQ(stats.Count(), 4U);
  EXPECT_EQ(stats.Types(), (MessageStats::TypeCounts{1, 1, 0, 1, 1}));
  const auto sources = stats.Sources();
  ASSERT_EQ(sources.size(), 2U);
  EXPECT_EQ(sources[0].name, "Laser");
  EXPECT_EQ(sources[0].count, 3U);
  EXPECT_EQ(sources[0].types, (MessageStats::TypeCounts{0, 1, 0, 1, 1}));
  EXPECT_EQ(sources[1].name, "Camera");
}

TEST_F(MessageStatsTest, CountsByPeriodAndRate) {
  Add(59999, "A", 0);
  Add(60000, "A", 0);
  Add(61000, "A", 0);
  Add(11 * 60000 - 1, "A", 0);
  const auto minutes = stats.Periods(1);
  ASSERT_EQ(minutes.size(), 3U);
  EXPECT_EQ(minutes[1].begin, (TimeWords{2026, 1, 1, 0, 1, 0, 0, 0}));
  EXPECT_EQ(minutes[1].count, 2U);
  const auto tens = stats.Periods(10);
  ASSERT_EQ(tens.size(), 2U);
  EXPECT_EQ(tens[0].count, 3U);
  EXPECT_EQ(stats.Periods(1440).size(), 1U);
  EXPECT_EQ(stats.SpanSeconds(), 600.0);
  EXPECT_EQ(stats.PerMinute(), 0.4);
}

TEST_F(MessageStatsTest, SourcesHaveAFirstAndALastTime) {
  Add(5000, "Laser", 1);
  Add(1000, "Laser", 1);
  Add(9000, "Camera", 0);
  LogMessage message{};
  message.body = MakeBody(0, "text", "Stage");
  message.body.timestamp[1] = 13;
  stats.Add(LogMessageView(message));
  const auto sources = stats.Sources();
  ASSERT_EQ(sources.size(), 3U);
  EXPECT_EQ(sources[0].oldest, (TimeWords{2026, 1, 1, 0, 0, 1, 0, 0}));
  EXPECT_EQ(sources[0].newest, (TimeWords{2026, 1, 1, 0, 0, 5, 0, 0}));
  EXPECT_EQ(sources[1].oldest, sources[1].newest);
  EXPECT_FALSE(sources[2].oldest);
  EXPECT_FALSE(sources[2].newest);
}

TEST_F(MessageStatsTest, GapsOfAMinuteAreFoundLongestFirst) {
  Add(3 * 60000 + 500, "A", 0);
  Add(0, "A", 0);  // messages of several logs come in any order
  Add(60000 - 1, "A", 0);
  Add(8 * 60000, "A", 0);
  Add(8 * 60000 + 59000, "A", 0);
  Add(9 * 60000 + 59000, "A", 0);
  const auto gaps = stats.Gaps(10);
  ASSERT_EQ(gaps.size(), 3U);
  EXPECT_EQ(gaps[0].Seconds(), 299.5);
  EXPECT_EQ(gaps[0].from, (TimeWords{2026, 1, 1, 0, 3, 0, 500, 0}));
  EXPECT_EQ(gaps[0].to, (TimeWords{2026, 1, 1, 0, 8, 0, 0, 0}));
  EXPECT_EQ(gaps[1].Seconds(), 120.501);
  EXPECT_EQ(gaps[2].Seconds(), 60);
  EXPECT_EQ(stats.Gaps(1).size(), 1U);
}

TEST_F(MessageStatsTest, BusiestMinuteIsTheFirstWithMostMessages) {
  EXPECT_FALSE(stats.BusiestMinute());
  for (const std::int32_t time : {0, 60000, 61000, 180000, 180001}) Add(time, "A", 0);
  EXPECT_EQ(stats.BusiestMinute()->begin, (TimeWords{2026, 1, 1, 0, 1, 0, 0, 0}));
  EXPECT_EQ(stats.BusiestMinute()->count, 2U);
  EXPECT_EQ(stats.ActiveMinutes(), 3U);
}

TEST_F(MessageStatsTest, ImpossibleTimesAreCountedApart) {
  LogMessage message{};
  message.body = MakeBody(0, "text");
  message.body.timestamp[1] = 13;
  stats.Add(LogMessageView(message));
  EXPECT_EQ(stats.Timeless(), 1U);
  EXPECT_EQ(stats.Count(), 1U);
  EXPECT_FALSE(stats.Oldest());
  EXPECT_FALSE(stats.PerMinute());
  EXPECT_TRUE(stats.Periods(1).empty());
  Add(5, "A", 0);
  EXPECT_FALSE(stats.PerMinute());  // no span
}

}  // namespace
