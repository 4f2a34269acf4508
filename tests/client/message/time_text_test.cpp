#include "client/message/time_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using TamLogClient::AppendTime;
using TamLogClient::IsRealTime;
using TamLogClient::ParseTime;
using TamLogClient::TimeWords;

std::string Text(const TimeWords& words, char separator = ' ') {
  std::string out;
  AppendTime(words, separator, out);
  return out;
}

constexpr TimeWords kTime{2026, 1, 2, 3, 4, 5, 678, 0};

TEST(TimeText, IsPrintedAsWrittenWithAllItsDigits) {
  EXPECT_EQ(Text(kTime), "2026-01-02 03:04:05.678");
  EXPECT_EQ(Text(kTime, 'T'), "2026-01-02T03:04:05.678");
  EXPECT_EQ(Text({1, 1, 1, 0, 0, 0, 0, 0}), "0001-01-01 00:00:00.000");
}

TEST(TimeText, ImpossibleTimesAreShownRawAndFlagged) {
  EXPECT_EQ(Text({2026, 13, 40, 25, 61, 61, 1000, 7}), "!2026,13,40,25,61,61,1000");
  EXPECT_EQ(Text({-5, 0, 1, 0, 0, 0, -1, 0}), "!-5,0,1,0,0,0,-1");
}

TEST(TimeText, KnowsTheCalendar) {
  EXPECT_TRUE(IsRealTime({2024, 2, 29, 0, 0, 0, 0, 0}));
  EXPECT_FALSE(IsRealTime({2026, 2, 29, 0, 0, 0, 0, 0}));
  EXPECT_FALSE(IsRealTime({2026, 4, 31, 0, 0, 0, 0, 0}));
  EXPECT_FALSE(IsRealTime({2026, 1, 1, 24, 0, 0, 0, 0}));
  EXPECT_FALSE(IsRealTime({2026, 1, 1, 0, 60, 0, 0, 0}));
  EXPECT_FALSE(IsRealTime({2026, 1, 1, 0, 0, 60, 0, 0}));
  EXPECT_FALSE(IsRealTime({2026, 1, 1, 0, 0, 0, 1000, 0}));
  EXPECT_FALSE(IsRealTime({0, 1, 1, 0, 0, 0, 0, 0}));
}

TEST(TimeText, WhatIsPrintedIsReadBack) {
  for (const TimeWords& words :
       {kTime, TimeWords{2026, 13, 40, 25, 61, 61, 1000, 0}, TimeWords{-32768, 32767, 0, 0, 0, 0, 0, 0},
        TimeWords{9999, 12, 31, 23, 59, 59, 999, 0}}) {
    EXPECT_EQ(ParseTime(Text(words)), words);
    EXPECT_EQ(ParseTime(Text(words, 'T')), words);
  }
}

TEST(TimeText, PartsAtTheEndMayBeMissing) {
  EXPECT_EQ(ParseTime("2026-01-02"), (TimeWords{2026, 1, 2, 0, 0, 0, 0, 0}));
  EXPECT_EQ(ParseTime("2026-01-02 03:04"), (TimeWords{2026, 1, 2, 3, 4, 0, 0, 0}));
  EXPECT_EQ(ParseTime("2026-1-2T3:04:05"), (TimeWords{2026, 1, 2, 3, 4, 5, 0, 0}));
  EXPECT_EQ(ParseTime("2026-01-02 03:04:05.5"), (TimeWords{2026, 1, 2, 3, 4, 5, 500, 0}));
}

TEST(TimeText, AnythingElseIsRefused) {
  for (const char* text : {"", "x", "2026", "2026-13-01", "2026-02-30", "2026-01-02x", "2026-01-02 ",
                           "2026-01-02 3", "2026-01-02 03:04:05.", "2026-01-02 03:04:05.6789", "26-01-02",
                           "!1,2,3", "!1,2,3,4,5,6,7,8", "!1,2,3,4,5,6,99999", "2026-01-02 24:00"}) {
    EXPECT_FALSE(ParseTime(text)) << text;
  }
}

}  // namespace
