#include "tamlogctl/select/time_bound.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using TamLogClient::TimeWords;
using TamLogCtl::BoundClock;
using TamLogCtl::ParseBound;

constexpr TimeWords kNow{2026, 3, 1, 12, 30, 15, 250, 0};

// Two hours ahead of UTC in summer, one in winter.
int Offset(const TimeWords& utc) {
  return utc[1] >= 4 && utc[1] <= 9 ? 120 : 60;
}

std::string Bound(const std::string& text) {
  const auto words = ParseBound(text, BoundClock{kNow, Offset});
  if (!words) return "refused";
  std::string out;
  TamLogClient::AppendTime(*words, ' ', out);
  return out;
}

TEST(TimeBound, WhatIsPrintedCanBePastedBack) {
  EXPECT_EQ(Bound("2026-01-02 03:04:05.678"), "2026-01-02 03:04:05.678");
  EXPECT_EQ(Bound("!2026,13,40,25,0,0,0"), "!2026,13,40,25,0,0,0");
  EXPECT_EQ(Bound("2026-01-02T03:04:05.678"), "2026-01-02 03:04:05.678");
}

TEST(TimeBound, PartsMayBeMissing) {
  EXPECT_EQ(Bound("2026-01-02"), "2026-01-02 00:00:00.000");
  EXPECT_EQ(Bound("2026-01-02 03:04"), "2026-01-02 03:04:00.000");
  EXPECT_EQ(Bound("2026-01-02 03:04:05"), "2026-01-02 03:04:05.000");
  EXPECT_EQ(Bound("09:15"), "2026-03-01 09:15:00.000");
  EXPECT_EQ(Bound("9:15:30.5"), "2026-03-01 09:15:30.500");
}

TEST(TimeBound, WordsAndDistancesCountFromNow) {
  EXPECT_EQ(Bound("now"), "2026-03-01 12:30:15.250");
  EXPECT_EQ(Bound("today"), "2026-03-01 00:00:00.000");
  EXPECT_EQ(Bound("yesterday"), "2026-02-28 00:00:00.000");
  EXPECT_EQ(Bound("tomorrow"), "2026-03-02 00:00:00.000");
  EXPECT_EQ(Bound("-250ms"), "2026-03-01 12:30:15.000");
  EXPECT_EQ(Bound("-90s"), "2026-03-01 12:28:45.250");
  EXPECT_EQ(Bound("-15m"), "2026-03-01 12:15:15.250");
  EXPECT_EQ(Bound("-13h"), "2026-02-28 23:30:15.250");
  EXPECT_EQ(Bound("-1d"), "2026-02-28 12:30:15.250");
  EXPECT_EQ(Bound("-1w"), "2026-02-22 12:30:15.250");
}

TEST(TimeBound, ZoneMeansThatMomentInLocalTime) {
  EXPECT_EQ(Bound("2026-01-02T03:04:05Z"), "2026-01-02 04:04:05.000");
  EXPECT_EQ(Bound("2026-07-02T03:04:05z"), "2026-07-02 05:04:05.000");
  EXPECT_EQ(Bound("2026-01-02t03:04:05.678901Z"), "2026-01-02 04:04:05.678");
  EXPECT_EQ(Bound("2026-01-02T03:04:05+01:00"), "2026-01-02 03:04:05.000");
  EXPECT_EQ(Bound("2026-01-01T20:04:05.1-0530"), "2026-01-02 02:34:05.100");
  EXPECT_EQ(Bound("2026-01-01 00:30:00+02:00"), "2025-12-31 23:30:00.000");
}

TEST(TimeBound, AnythingElseIsRefused) {
  for (const char* const text : {"",
                                 "-",
                                 "-m",
                                 "-15",
                                 "-15y",
                                 "--5m",
                                 "-1.5h",
                                 "-99999999s",
                                 "-9999999w",
                                 "soon",
                                 "2026-13-01",
                                 "2026-02-30",
                                 "2026-01-02 25:00",
                                 "2026-01-02 03",
                                 "2026-01-02 03:04:05.",
                                 "2026-01-02 03:04:60",
                                 "2026-01-02Z",
                                 "2026-01-02T03:04:05+1",
                                 "2026-01-02T03:04:05+24:00",
                                 "2026-01-02T03:04:05+01:60",
                                 "2026-01-02T03:04:05ZZ",
                                 "!1,2",
                                 "!2026,13,40,25,0,0,0Z",
                                 "03:04Z",
                                 "24:00",
                                 "1:2",
                                 ":",
                                 "99999",
                                 "0001-01-01T00:00:00+05:00",
                                 "9999-12-31T23:59:59Z"}) {
    EXPECT_EQ(Bound(text), "refused") << text;
  }
}

}  // namespace
