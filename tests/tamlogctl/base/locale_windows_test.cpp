// The zone of this test is America/New_York (CMakeLists.txt), whose rules changed in 2007.

#include <gtest/gtest.h>

#include "tamlogctl/base/locale.h"

namespace {

using TamLogCtl::OffsetAtUtc;
using TamLogCtl::OffsetOfLocalTime;

constexpr int kStandard = -5 * 60;
constexpr int kDaylight = -4 * 60;

TEST(LocaleOnWindows, OffsetsFollowTheRulesOfTheirYear) {
  EXPECT_EQ(OffsetOfLocalTime({2006, 3, 20, 12}), kStandard);  // daylight saving time began in April
  EXPECT_EQ(OffsetAtUtc({2006, 3, 20, 12}), kStandard);
  EXPECT_EQ(OffsetOfLocalTime({2026, 3, 20, 12}), kDaylight);  // now it begins in March
  EXPECT_EQ(OffsetAtUtc({2026, 3, 20, 12}), kDaylight);
}

TEST(LocaleOnWindows, OffsetsChangeWithDaylightSavingTime) {
  EXPECT_EQ(OffsetAtUtc({2026, 3, 8, 6, 59}), kStandard);
  EXPECT_EQ(OffsetAtUtc({2026, 3, 8, 7, 0}), kDaylight);
  EXPECT_EQ(OffsetAtUtc({2026, 11, 1, 5, 59}), kDaylight);
  EXPECT_EQ(OffsetAtUtc({2026, 11, 1, 6, 0}), kStandard);
  EXPECT_EQ(OffsetOfLocalTime({2026, 1, 15, 12}), kStandard);
  EXPECT_EQ(OffsetOfLocalTime({2026, 7, 15, 12}), kDaylight);
}

}  // namespace
