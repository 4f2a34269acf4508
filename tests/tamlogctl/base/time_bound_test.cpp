#include "tamlogctl/base/time_bound.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "client/message/time_zone.h"
#include "tamlogctl/base/time_arithmetic.h"

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

TEST(TimeBound, DaysTakeATimeOfDay) {
  EXPECT_EQ(Bound("yesterday 10:00"), "2026-02-28 10:00:00.000");
  EXPECT_EQ(Bound("today 9:15:30.5"), "2026-03-01 09:15:30.500");
  EXPECT_EQ(Bound("Tomorrow  23:59"), "2026-03-02 23:59:00.000");
}

TEST(TimeBound, DurationsMayBeCompoundAndInWords) {
  EXPECT_EQ(Bound("-1h30m"), "2026-03-01 11:00:15.250");
  EXPECT_EQ(Bound("-1d2h"), "2026-02-28 10:30:15.250");
  EXPECT_EQ(Bound("1 hour ago"), "2026-03-01 11:30:15.250");
  EXPECT_EQ(Bound("2 Days 30 minutes ago"), "2026-02-27 12:00:15.250");
  EXPECT_EQ(Bound("90s ago"), "2026-03-01 12:28:45.250");
  EXPECT_EQ(Bound("+2h"), "2026-03-01 14:30:15.250");
}

TEST(TimeBound, SecondsSince1970BecomeLocalTime) {
  EXPECT_EQ(Bound("@0"), "1970-01-01 01:00:00.000");
  EXPECT_EQ(Bound("@1767322800"), "2026-01-02 04:00:00.000");
  EXPECT_EQ(Bound("@1767322800.5"), "2026-01-02 04:00:00.500");
  EXPECT_EQ(Bound("@1767322800.123456"), "2026-01-02 04:00:00.123");
  EXPECT_EQ(Bound("@1783000000"), "2026-07-02 15:46:40.000");
}

// One hour ahead of UTC; two from 2026-03-29 01:00 UTC to 2026-10-25 01:00 UTC.
int CentralEurope(const TimeWords& utc) {
  return utc >= TimeWords{2026, 3, 29, 1} && utc < TimeWords{2026, 10, 25, 1} ? 120 : 60;
}

std::string BoundAt(const TimeWords& utc, const std::string& text, bool utcIsKnown = true) {
  const auto now = *TamLogCtl::MovedBy(utc, std::chrono::minutes(CentralEurope(utc)));
  BoundClock clock{now, CentralEurope};
  if (utcIsKnown) clock.utc = utc;
  std::string out;
  TamLogClient::AppendTime(ParseBound(text, clock).value(), ' ', out);
  return out;
}

TEST(TimeBound, HoursAreElapsedTimeAndDaysKeepTheTimeOfDayOverDaylightSaving) {
  // The clock was set from 02:00 to 03:00.
  EXPECT_EQ(BoundAt({2026, 3, 29, 1, 30}, "now"), "2026-03-29 03:30:00.000");
  EXPECT_EQ(BoundAt({2026, 3, 29, 1, 30}, "-1h"), "2026-03-29 01:30:00.000");
  EXPECT_EQ(BoundAt({2026, 3, 29, 1, 30}, "-1h", false), "2026-03-29 01:30:00.000");
  EXPECT_EQ(BoundAt({2026, 3, 29, 10, 0}, "-24h"), "2026-03-28 11:00:00.000");
  EXPECT_EQ(BoundAt({2026, 3, 29, 10, 0}, "-1d"), "2026-03-28 12:00:00.000");
  EXPECT_EQ(BoundAt({2026, 3, 29, 10, 0}, "-1d1h"), "2026-03-28 11:00:00.000");
  EXPECT_EQ(BoundAt({2026, 3, 29, 10, 0}, "yesterday 10:00"), "2026-03-28 10:00:00.000");
  // It was set from 03:00 back to 02:00: the second half past two, and the first one an hour before.
  EXPECT_EQ(BoundAt({2026, 10, 25, 1, 30}, "now"), "2026-10-25 02:30:00.000");
  EXPECT_EQ(BoundAt({2026, 10, 25, 1, 30}, "-1h"), "2026-10-25 02:30:00.000");
  EXPECT_EQ(BoundAt({2026, 10, 25, 1, 30}, "-2h"), "2026-10-25 01:30:00.000");
  EXPECT_EQ(BoundAt({2026, 10, 25, 12, 0}, "-1w"), "2026-10-18 13:00:00.000");
}

TEST(TimeBound, LowerBoundLeavesOutNothingWhereTheClockWasSetBack) {
  const auto since = [](const TimeWords& utc, const std::string& text) {
    const auto now = *TamLogCtl::MovedBy(utc, std::chrono::minutes(CentralEurope(utc)));
    std::string out;
    TamLogClient::AppendTime(ParseBound(text, {now, CentralEurope, utc, true}).value(), ' ', out);
    return out;
  };
  // 20 minutes before the second 02:10 it was the first 02:50; from then on the clock showed 02:00 to 02:10,
  // too.
  EXPECT_EQ(since({2026, 10, 25, 1, 10}, "-20m"), "2026-10-25 02:00:00.000");
  EXPECT_EQ(since({2026, 10, 25, 1, 30}, "-1h"), "2026-10-25 02:00:00.000");
  EXPECT_EQ(since({2026, 10, 25, 1, 30}, "-2h"), "2026-10-25 01:30:00.000");
  EXPECT_EQ(since({2026, 10, 25, 1, 30}, "-10m"), "2026-10-25 02:20:00.000");
  EXPECT_EQ(since({2026, 3, 29, 1, 30}, "-1h"), "2026-03-29 01:30:00.000");
  EXPECT_EQ(since({2026, 12, 25, 1, 30}, "-4000h"), "2026-07-11 11:30:00.000");
}

TEST(TimeBound, ClockOfNowKnowsLocalTimeAndUtc) {
  const auto clock = TamLogCtl::ClockOfNow([](const TimeWords&) { return -90; });
  ASSERT_TRUE(clock.utc);
  EXPECT_EQ(clock.now, TamLogCtl::MovedBy(*clock.utc, std::chrono::minutes(-90)));
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since).count();
  const auto read = TamLogClient::MillisecondsSince1970(*clock.utc, 0) / 1000;
  EXPECT_LE(read, seconds);
  EXPECT_GE(read, seconds - 600);
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
                                 "@",
                                 "@-5",
                                 "@ 5",
                                 "@12x",
                                 "@12.",
                                 "@1.2.3",
                                 "@253402300800",
                                 "@253402300799",
                                 "1 hour",
                                 "ago",
                                 " ago",
                                 "-1 hour ago",
                                 "1h30 ago",
                                 "yesterday10:00",
                                 "yesterday 25:00",
                                 "yesterday 10",
                                 "yesterday -1h",
                                 "0001-01-01T00:00:00+05:00",
                                 "9999-12-31T23:59:59Z"}) {
    EXPECT_EQ(Bound(text), "refused") << text;
  }
}

}  // namespace
