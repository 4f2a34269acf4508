#include "util/clock_arithmetic.h"

#include <gtest/gtest.h>

#include <limits>

namespace TamLogUtil {
namespace {

constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();

TEST(ElapsedMilliseconds, IsTheDifferenceOfTheReadings) {
  EXPECT_EQ(ElapsedMilliseconds(1000, 1080), 80);
  EXPECT_EQ(ElapsedMilliseconds(1000, 1000), 0);
  EXPECT_EQ(ElapsedMilliseconds(-5, 5), 10);
}

TEST(ElapsedMilliseconds, SurvivesTheWrapOfTheClock) {
  EXPECT_EQ(ElapsedMilliseconds(kHighest, kLowest), 1);
}

TEST(ElapsedMilliseconds, WrapsInTheProduct) {
  EXPECT_EQ(ElapsedMilliseconds(0, 2147483), 2147483);
  // 2147484 * 1000 is one step over 2^31: -2147483296, and the division rounds toward zero.
  EXPECT_EQ(ElapsedMilliseconds(0, 2147484), -2147483);
  EXPECT_EQ(ElapsedMilliseconds(0, 4294968), 0);
}

TEST(CountDown, StopsAtZero) {
  EXPECT_EQ(CountDown(50, 20), 30U);
  EXPECT_EQ(CountDown(50, 49), 1U);
  EXPECT_EQ(CountDown(50, 50), 0U);
  EXPECT_EQ(CountDown(50, 80), 0U);
  EXPECT_EQ(CountDown(0, 0), 0U);
}

TEST(CountDown, ANegativeElapsedTimeEndsTheTimeOut) {
  EXPECT_EQ(CountDown(5000000, ElapsedMilliseconds(0, 2147484)), 0U);
}

TEST(PeriodDeadline, LiesOnePeriodAfterTheStart) {
  EXPECT_EQ(PeriodDeadline(100, 2000), 2100U);
  EXPECT_EQ(PeriodDeadline(0, 4294967), 4294967U);
}

TEST(PeriodDeadline, WrapsForLongPeriods) {
  // 4294968 * 1000 = 2^32 + 704.
  EXPECT_EQ(PeriodDeadline(100, 4294968), 100U);
  EXPECT_EQ(PeriodDeadline(100, 4295967), 100U + 999U);
}

TEST(PeriodDeadline, WrapsWithTheClock) {
  const std::uint32_t deadline = PeriodDeadline(kHighest, 2000);
  EXPECT_EQ(deadline, 2147485647U);
  // A deadline after the wrap counts as past at once.
  EXPECT_FALSE(IsBeforeDeadline(kHighest, deadline));
}

TEST(IsBeforeDeadline, ComparesWithSign) {
  EXPECT_TRUE(IsBeforeDeadline(99, 100));
  EXPECT_FALSE(IsBeforeDeadline(100, 100));
  EXPECT_TRUE(IsBeforeDeadline(-1, 0));
  EXPECT_FALSE(IsBeforeDeadline(0, 0xFFFFFFFFU));
}

}  // namespace
}  // namespace TamLogUtil
