#include "tamlogctl/select/time_arithmetic.h"

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
  constexpr std::chrono::days kFarthest{4000000};  // more than the 9,999 years of the calendar
  if (!IsRealTime(words) || by > kFarthest || by < -kFarthest) return std::nullopt;
  TimeWords moved = WordsSince1970(MillisecondsSince1970(words, 0) + by.count());
  if (!IsRealTime(moved)) return std::nullopt;
  moved.back() = words.back();  // the spare word is no part of the time
  return moved;
}

double SecondsBetween(const TimeWords& earlier, const TimeWords& later) {
  const std::int64_t between = MillisecondsSince1970(later, 0) - MillisecondsSince1970(earlier, 0);
  return static_cast<double>(between) / 1000.0;
}

std::optional<milliseconds> ParseDuration(std::string_view text) {
  constexpr std::array<std::pair<std::string_view, milliseconds>, 6> kUnits{{{"ms", milliseconds(1)},
                                                                             {"s", std::chrono::seconds(1)},
                                                                             {"m", std::chrono::minutes(1)},
                                                                             {"h", std::chrono::hours(1)},
                                                                             {"d", std::chrono::days(1)},
                                                                             {"w", std::chrono::weeks(1)}}};
  constexpr std::ptrdiff_t kMostDigits = 7;
  std::uint32_t count = 0;
  const char* const end = text.data() + text.size();
  const auto [digitsEnd, error] = std::from_chars(text.data(), end, count);
  if (error != std::errc() || digitsEnd - text.data() > kMostDigits) return std::nullopt;
  const std::string_view unit(digitsEnd, static_cast<std::size_t>(end - digitsEnd));
  for (const auto& [name, length] : kUnits) {
    if (name == unit) return length * count;
  }
  return std::nullopt;
}

}  // namespace TamLogCtl
