#include "client/message/time_zone.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace {

using TamLogClient::MillisecondsSince1970;
using TamLogClient::TimeWords;
using TamLogClient::TimeZone;

constexpr TimeWords kTime{2026, 1, 2, 3, 4, 5, 678, 0};

std::string OffsetText(const char* name, const TimeWords& words = kTime) {
  auto zone = TimeZone::FromName(name, [](const TimeWords& local) { return local[1] == 7 ? 120 : 60; });
  if (!zone) return "no zone";
  const auto offset = zone->OffsetAt(words);
  std::string out;
  if (offset) zone->AppendOffset(*offset, out);
  return out;
}

TEST(TimeZone, NothingIsShownWhenNoneIsStated) {
  EXPECT_EQ(OffsetText("written"), "");
}

TEST(TimeZone, ShowsTheOffsetThatWasStated) {
  EXPECT_EQ(OffsetText("utc"), "Z");
  EXPECT_EQ(OffsetText("+02:00"), "+02:00");
  EXPECT_EQ(OffsetText("-09:30"), "-09:30");
  EXPECT_EQ(OffsetText("+00:00"), "+00:00");
  EXPECT_EQ(OffsetText("+23:59"), "+23:59");
}

TEST(TimeZone, AsksForTheLocalOffsetOfEachDate) {
  EXPECT_EQ(OffsetText("local"), "+01:00");
  EXPECT_EQ(OffsetText("local", {2026, 7, 2, 3, 4, 5, 678, 0}), "+02:00");
}

TEST(TimeZone, AsksForTheLocalOffsetOnceAMinute) {
  int asked = 0;
  auto zone = TimeZone::FromName("local", [&asked](const TimeWords& local) {
    EXPECT_EQ(local[5], 0);
    return ++asked;
  });
  EXPECT_EQ(zone->OffsetAt(kTime), 1);
  EXPECT_EQ(zone->OffsetAt({2026, 1, 2, 3, 4, 59, 0, 9}), 1);
  EXPECT_EQ(zone->OffsetAt({2026, 1, 2, 3, 5, 0, 0, 0}), 2);
}

TEST(TimeZone, ImpossibleTimesHaveNoOffset) {
  EXPECT_EQ(OffsetText("utc", {2026, 13, 40, 0, 0, 0, 0, 0}), "");
  EXPECT_EQ(OffsetText("local", {2026, 13, 40, 0, 0, 0, 0, 0}), "");
}

TEST(TimeZone, AnythingElseIsRefused) {
  for (const char* const name : {"", "UTC+1", "+2", "+2:00", "+0200", "+24:00", "+01:60", "02:00", "+0a:00",
                                 "+01:0x", "Europe/Berlin", "+01:000"})
    EXPECT_EQ(OffsetText(name), "no zone") << name;
}

TEST(TimeZone, CountsMillisecondsFrom1970) {
  EXPECT_EQ(MillisecondsSince1970({1970, 1, 1, 0, 0, 0, 0, 0}, 0), 0);
  EXPECT_EQ(MillisecondsSince1970({1970, 1, 1, 1, 0, 0, 1, 0}, 60), 1);
  EXPECT_EQ(MillisecondsSince1970(kTime, 0), 1767323045678);
  EXPECT_EQ(MillisecondsSince1970(kTime, -570), 1767323045678 + 570 * 60000);
  EXPECT_EQ(MillisecondsSince1970({1969, 12, 31, 23, 59, 59, 999, 0}, 0), -1);
}

// Against the calendar of the standard library, over more than one turn of the calendar.
TEST(TimeZone, CountsTheDaysOfEveryMonth) {
  for (int year = 1; year < 900; ++year) {
    for (unsigned month = 1; month <= 12; ++month) {
      const std::chrono::sys_days day{std::chrono::year(year) / std::chrono::month(month) / 28};
      const TimeWords words{
          static_cast<std::int16_t>(year), static_cast<std::int16_t>(month), 28, 0, 0, 0, 0, 0};
      ASSERT_EQ(MillisecondsSince1970(words, 0), day.time_since_epoch().count() * 86400000LL)
          << year << month;
    }
  }
}

TEST(TimeZone, ImpossibleTimesRollOver) {
  EXPECT_EQ(MillisecondsSince1970({2026, 13, 1, 0, 0, 0, 0, 0}, 0),
            MillisecondsSince1970({2027, 1, 1, 0, 0, 0, 0, 0}, 0));
  EXPECT_EQ(MillisecondsSince1970({2026, 0, 1, 0, 0, 0, 0, 0}, 0),
            MillisecondsSince1970({2025, 12, 1, 0, 0, 0, 0, 0}, 0));
  EXPECT_EQ(MillisecondsSince1970({2026, 3, 0, 0, 0, 0, 0, 0}, 0),
            MillisecondsSince1970({2026, 2, 28, 0, 0, 0, 0, 0}, 0));
  // The ends of what words can hold are no fault.
  EXPECT_GT(MillisecondsSince1970({32767, 32767, 32767, 32767, 32767, 32767, 32767, 0}, 0), 0);
  EXPECT_LT(MillisecondsSince1970({-32768, -32768, -32768, -32768, -32768, -32768, -32768, 0}, 0), 0);
}

}  // namespace
