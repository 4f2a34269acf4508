#include "tamlogctl/base/time_arithmetic.h"

#include <gtest/gtest.h>

#include "client/message/time_zone.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using TamLogClient::TimeWords;
using TamLogCtl::MovedBy;
using TamLogCtl::ParseDuration;

TEST(TimeArithmetic, MillisecondsGoBothWaysAcrossCenturies) {
  for (const TimeWords& words :
       {TimeWords{1, 1, 1, 0, 0, 0, 0, 0}, TimeWords{1969, 12, 31, 23, 59, 0, 0, 0},
        TimeWords{1970, 1, 1, 0, 0, 0, 0, 0}, TimeWords{9999, 12, 31, 23, 59, 59, 999, 0}}) {
    EXPECT_EQ(TamLogCtl::WordsSince1970(TamLogClient::MillisecondsSince1970(words, 0)), words);
  }
}

TEST(TimeArithmetic, MovingKeepsToTheCalendarAndTheSpareWord) {
  EXPECT_EQ(MovedBy({2028, 2, 28, 23, 59, 0, 7, 5}, minutes(1)), (TimeWords{2028, 2, 29, 0, 0, 0, 7, 5}));
  EXPECT_EQ(MovedBy({1970, 1, 1, 0, 0, 0, 0, 0}, milliseconds(-1)),
            (TimeWords{1969, 12, 31, 23, 59, 59, 999, 0}));
  EXPECT_EQ(MovedBy({2026, 13, 1, 0, 0, 0, 0, 0}, minutes(1)), std::nullopt);
  EXPECT_EQ(MovedBy({9999, 12, 31, 23, 59, 0, 0, 0}, minutes(1)), std::nullopt);
  EXPECT_EQ(MovedBy({2026, 3, 1, 0, 0, 0, 0, 0}, minutes(INT32_MAX * std::int64_t{1000})), std::nullopt);
}

TEST(TimeArithmetic, SecondsLieBetweenTimesOfDifferentDays) {
  EXPECT_EQ(TamLogCtl::SecondsBetween({2026, 2, 28, 23, 59, 59, 500, 0}, {2026, 3, 1, 0, 0, 1, 0, 0}), 1.5);
}

TEST(TimeArithmetic, DurationsNameTheirUnit) {
  EXPECT_EQ(ParseDuration("250ms"), milliseconds(250));
  EXPECT_EQ(ParseDuration("90s"), std::chrono::seconds(90));
  EXPECT_EQ(ParseDuration("0m"), minutes(0));
  EXPECT_EQ(ParseDuration("2h"), std::chrono::hours(2));
  EXPECT_EQ(ParseDuration("3d"), std::chrono::days(3));
  EXPECT_EQ(ParseDuration("9999999w"), std::chrono::weeks(9999999));
  for (const char* const text : {"", " ", "15", "m", "-15m", "+15m", "1.5h", "15M", "15mm", "10000000s",
                                 "0x1s", "1h30", "1h m", " 1h", "1h-30m", "one hour"}) {
    EXPECT_FALSE(ParseDuration(text)) << text;
  }
}

TEST(TimeArithmetic, DurationsAddUpAndTakeWholeWords) {
  EXPECT_EQ(ParseDuration("1h30m"), minutes(90));
  EXPECT_EQ(ParseDuration("1h 30m 5s"), std::chrono::seconds(5405));
  EXPECT_EQ(ParseDuration("15 m"), minutes(15));
  EXPECT_EQ(ParseDuration("1 hour"), minutes(60));
  EXPECT_EQ(ParseDuration("2 days 3 hours 4 minutes"), std::chrono::hours(51) + minutes(4));
  EXPECT_EQ(ParseDuration("10min30sec"), std::chrono::seconds(630));
  EXPECT_EQ(ParseDuration("2 weeks"), std::chrono::days(14));
}

TEST(TimeArithmetic, SumOfManyDurationsIsBounded) {
  std::string text;
  for (int i = 0; i < 100000; ++i) text += "9999999w";
  EXPECT_EQ(ParseDuration(text), std::nullopt);
}

}  // namespace
