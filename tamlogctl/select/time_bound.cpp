#include "tamlogctl/select/time_bound.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>

namespace TamLogCtl {

using TamLogClient::IsRealTime;
using TamLogClient::TimeWords;

namespace {

using Moment = std::chrono::sys_time<std::chrono::milliseconds>;

bool IsDigit(char letter) {
  return letter >= '0' && letter <= '9';
}

std::optional<TimeWords> Moved(const TimeWords& words, std::chrono::milliseconds by) {
  constexpr std::chrono::days kFarthest{4000000};  // beyond the calendar's 9,999 years
  if (!IsRealTime(words) || by > kFarthest || by < -kFarthest) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(words[0]),
                                         std::chrono::month(static_cast<unsigned>(words[1])),
                                         std::chrono::day(static_cast<unsigned>(words[2]))};
  const Moment moment = std::chrono::sys_days(date) + std::chrono::hours(words[3]) +
                        std::chrono::minutes(words[4]) + std::chrono::seconds(words[5]) +
                        std::chrono::milliseconds(words[6]) + by;
  const auto day = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day moved{day};
  const std::chrono::hh_mm_ss time{moment - day};
  const auto word = [](auto value) { return static_cast<std::int16_t>(value); };
  const TimeWords result{word(static_cast<int>(moved.year())),
                         word(static_cast<unsigned>(moved.month())),
                         word(static_cast<unsigned>(moved.day())),
                         word(time.hours().count()),
                         word(time.minutes().count()),
                         word(time.seconds().count()),
                         word(time.subseconds().count()),
                         0};
  if (!IsRealTime(result)) return std::nullopt;
  return result;
}

std::optional<TimeWords> Midnight(TimeWords words, int daysOn) {
  std::fill(words.begin() + 3, words.end(), std::int16_t{0});
  return Moved(words, std::chrono::days(daysOn));
}

std::optional<std::chrono::milliseconds> LengthOf(char unit) {
  constexpr std::array<std::pair<char, std::chrono::milliseconds>, 5> kUnits{{{'s', std::chrono::seconds(1)},
                                                                              {'m', std::chrono::minutes(1)},
                                                                              {'h', std::chrono::hours(1)},
                                                                              {'d', std::chrono::days(1)},
                                                                              {'w', std::chrono::days(7)}}};
  for (const auto& [letter, length] : kUnits) {
    if (letter == unit) return length;
  }
  return std::nullopt;
}

// -15m
std::optional<TimeWords> ParseRelative(std::string_view text, const TimeWords& now) {
  constexpr std::size_t kMostDigits = 7;
  const std::string_view digits = text.substr(1, text.size() - 2);
  const auto unit = LengthOf(text.back());
  if (!unit || digits.empty() || digits.size() > kMostDigits) return std::nullopt;
  std::int64_t count = 0;
  for (const char digit : digits) {
    if (!IsDigit(digit)) return std::nullopt;
    count = count * 10 + (digit - '0');
  }
  return Moved(now, -count * *unit);
}

// Takes "Z", "+02:00" or "-0530" from the end; minutes ahead of UTC.
std::optional<int> TakeZone(std::string_view& text) {
  if (text.ends_with('Z') || text.ends_with('z')) {
    text.remove_suffix(1);
    return 0;
  }
  const std::size_t sign = text.find_last_of("+-");
  if (sign == std::string_view::npos) return std::nullopt;
  std::string digits(text.substr(sign + 1));
  if (digits.size() == 5 && digits[2] == ':') digits.erase(2, 1);
  if (digits.size() != 4 || !std::all_of(digits.begin(), digits.end(), IsDigit)) return std::nullopt;
  const int hours = (digits[0] - '0') * 10 + digits[1] - '0';
  const int minutes = (digits[2] - '0') * 10 + digits[3] - '0';
  if (hours > 23 || minutes > 59) return std::nullopt;
  const int offset = hours * 60 + minutes;
  const bool west = text[sign] == '-';
  text = text.substr(0, sign);
  return west ? -offset : offset;
}

// A zone can only follow a time of day.
std::optional<TimeWords> ParseZoned(std::string_view text, const BoundClock& clock) {
  const auto zone = TakeZone(text);
  if (!zone || text.find(':') == std::string_view::npos || text.starts_with('!')) return std::nullopt;
  const auto words = TamLogClient::ParseTime(text);
  if (!words) return std::nullopt;
  const auto utc = MovedBy(*words, -std::int64_t{*zone});
  return utc ? MovedBy(*utc, clock.localOffset(*utc)) : std::nullopt;
}

// Cuts the digits of a second's fraction behind the third.
std::string WithMilliseconds(std::string_view text) {
  std::string cut(text);
  const std::size_t point = cut.find('.');
  if (point == std::string::npos) return cut;
  std::size_t end = point + 1;
  while (end < cut.size() && IsDigit(cut[end])) ++end;
  if (end > point + 4) cut.erase(point + 4, end - point - 4);
  return cut;
}

std::optional<TimeWords> ParseTimeOfDay(const std::string& text, const TimeWords& now) {
  std::string day;
  const auto midnight = Midnight(now, 0);
  if (!midnight) return std::nullopt;
  TamLogClient::AppendTime(*midnight, ' ', day);
  return TamLogClient::ParseTime(day.substr(0, day.find(' ') + 1) + text);
}

}  // namespace

std::optional<TimeWords> MovedBy(const TimeWords& words, std::int64_t minutes) {
  return Moved(words, std::chrono::minutes(minutes));
}

std::optional<TimeWords> ParseBound(std::string_view text, const BoundClock& clock) {
  if (text == "now") return clock.now;
  if (text == "today") return Midnight(clock.now, 0);
  if (text == "yesterday") return Midnight(clock.now, -1);
  if (text == "tomorrow") return Midnight(clock.now, 1);
  if (text.size() >= 3 && text.front() == '-') return ParseRelative(text, clock.now);
  std::string cut = WithMilliseconds(text);
  if (cut.size() > 10 && cut[10] == 't') cut[10] = 'T';
  if (auto words = TamLogClient::ParseTime(cut)) return words;
  if (auto words = ParseZoned(cut, clock)) return words;
  if (cut.size() >= 4 && (cut[1] == ':' || cut[2] == ':')) return ParseTimeOfDay(cut, clock.now);
  return std::nullopt;
}

}  // namespace TamLogCtl
