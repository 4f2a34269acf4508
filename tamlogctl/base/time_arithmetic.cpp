#include "tamlogctl/base/time_arithmetic.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>
#include <utility>

#include "client/message/time_zone.h"

namespace TamLogCtl {

using std::chrono::milliseconds;
using TamLogClient::IsRealTime;
using TamLogClient::MillisecondsSince1970;
using TamLogClient::TimeWords;

namespace {

// More than seven digits of weeks; sums of it are far from the limits of the type.
constexpr std::chrono::days kFarthest{100000000};

struct Unit {
  std::string_view name;
  TimeSpan length;
};

constexpr std::array<Unit, 26> kUnits{{{"ms", {{}, milliseconds(1)}},
                                       {"msec", {{}, milliseconds(1)}},
                                       {"millisecond", {{}, milliseconds(1)}},
                                       {"milliseconds", {{}, milliseconds(1)}},
                                       {"s", {{}, std::chrono::seconds(1)}},
                                       {"sec", {{}, std::chrono::seconds(1)}},
                                       {"secs", {{}, std::chrono::seconds(1)}},
                                       {"second", {{}, std::chrono::seconds(1)}},
                                       {"seconds", {{}, std::chrono::seconds(1)}},
                                       {"m", {{}, std::chrono::minutes(1)}},
                                       {"min", {{}, std::chrono::minutes(1)}},
                                       {"mins", {{}, std::chrono::minutes(1)}},
                                       {"minute", {{}, std::chrono::minutes(1)}},
                                       {"minutes", {{}, std::chrono::minutes(1)}},
                                       {"h", {{}, std::chrono::hours(1)}},
                                       {"hr", {{}, std::chrono::hours(1)}},
                                       {"hrs", {{}, std::chrono::hours(1)}},
                                       {"hour", {{}, std::chrono::hours(1)}},
                                       {"hours", {{}, std::chrono::hours(1)}},
                                       {"d", {std::chrono::days(1), {}}},
                                       {"day", {std::chrono::days(1), {}}},
                                       {"days", {std::chrono::days(1), {}}},
                                       {"w", {std::chrono::days(7), {}}},
                                       {"wk", {std::chrono::days(7), {}}},
                                       {"week", {std::chrono::days(7), {}}},
                                       {"weeks", {std::chrono::days(7), {}}}}};

void SkipSpaces(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
}

// Removes a number of up to seven digits, and the spaces after it.
std::optional<std::int64_t> TakeCount(std::string_view& text) {
  constexpr std::ptrdiff_t kMostDigits = 7;
  std::uint32_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || end - text.data() > kMostDigits) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  SkipSpaces(text);
  return count;
}

// Removes the name of a unit, and the spaces after it.
std::optional<TimeSpan> TakeUnit(std::string_view& text) {
  const std::size_t length = std::min(text.find_first_of(" 0123456789"), text.size());
  const std::string_view name = text.substr(0, length);
  const auto* const found =
      std::find_if(kUnits.begin(), kUnits.end(), [name](const Unit& unit) { return unit.name == name; });
  if (found == kUnits.end()) return std::nullopt;
  text.remove_prefix(length);
  SkipSpaces(text);
  return found->length;
}

}  // namespace

TimeWords WordsSince1970(std::int64_t since) {
  const std::chrono::sys_time<milliseconds> moment{milliseconds(since)};
  const auto day = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day date{day};
  const std::chrono::hh_mm_ss time{moment - day};
  const auto word = [](auto value) { return static_cast<std::int16_t>(value); };
  return {word(static_cast<int>(date.year())),
          word(static_cast<unsigned>(date.month())),
          word(static_cast<unsigned>(date.day())),
          word(time.hours().count()),
          word(time.minutes().count()),
          word(time.seconds().count()),
          word(time.subseconds().count()),
          0};
}

std::optional<TimeWords> MovedBy(const TimeWords& words, milliseconds by) {
  constexpr std::chrono::days kMost{4000000};  // more than the 9,999 years of the calendar
  if (!IsRealTime(words) || by > kMost || by < -kMost) return std::nullopt;
  TimeWords moved = WordsSince1970(MillisecondsSince1970(words, 0) + by.count());
  if (!IsRealTime(moved)) return std::nullopt;
  moved.back() = words.back();  // the spare word is no part of the time
  return moved;
}

double SecondsBetween(const TimeWords& earlier, const TimeWords& later) {
  const std::int64_t between = MillisecondsSince1970(later, 0) - MillisecondsSince1970(earlier, 0);
  return static_cast<double>(between) / 1000.0;
}

std::optional<TimeSpan> ReadDuration(std::string_view text) {
  TimeSpan sum;
  if (text.empty() || text.front() == ' ') return std::nullopt;
  while (!text.empty()) {
    const auto count = TakeCount(text);
    const auto unit = count ? TakeUnit(text) : std::nullopt;
    if (!unit) return std::nullopt;
    sum.days += unit->days * *count;
    sum.rest += unit->rest * *count;
    if (sum.days > kFarthest || sum.rest > kFarthest) return std::nullopt;
  }
  return sum;
}

std::optional<milliseconds> ParseDuration(std::string_view text) {
  const auto duration = ReadDuration(text);
  return duration ? std::optional(duration->Elapsed()) : std::nullopt;
}

}  // namespace TamLogCtl
