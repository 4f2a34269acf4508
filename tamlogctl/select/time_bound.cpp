#include "tamlogctl/select/time_bound.h"

#include <algorithm>
#include <chrono>
#include <string>

#include "tamlogctl/select/time_arithmetic.h"

namespace TamLogCtl {

using TamLogClient::TimeWords;

namespace {

bool IsDigit(char letter) {
  return letter >= '0' && letter <= '9';
}

std::optional<TimeWords> Midnight(TimeWords words, int daysOn) {
  std::fill(words.begin() + 3, words.end(), std::int16_t{0});
  return MovedBy(words, std::chrono::days(daysOn));
}

// -15m
std::optional<TimeWords> ParseRelative(std::string_view text, const TimeWords& now) {
  const auto duration = ParseDuration(text.substr(1));
  return duration ? MovedBy(now, -*duration) : std::nullopt;
}

// Removes "Z", "+02:00" or "-0530" from the end; returns the minutes ahead of UTC.
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

// A zone is accepted after a time of day only.
std::optional<TimeWords> ParseZoned(std::string_view text, const BoundClock& clock) {
  const auto zone = TakeZone(text);
  if (!zone || text.find(':') == std::string_view::npos || text.starts_with('!')) return std::nullopt;
  const auto words = TamLogClient::ParseTime(text);
  if (!words) return std::nullopt;
  const auto utc = MovedBy(*words, -std::chrono::minutes(*zone));
  return utc ? MovedBy(*utc, std::chrono::minutes(clock.localOffset(*utc))) : std::nullopt;
}

// Drops the digits of a second's fraction after the third.
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

std::optional<TimeWords> ParseBound(std::string_view text, const BoundClock& clock) {
  if (text == "now") return clock.now;
  if (text == "today") return Midnight(clock.now, 0);
  if (text == "yesterday") return Midnight(clock.now, -1);
  if (text == "tomorrow") return Midnight(clock.now, 1);
  if (text.starts_with('-')) return ParseRelative(text, clock.now);
  std::string cut = WithMilliseconds(text);
  if (cut.size() > 10 && cut[10] == 't') cut[10] = 'T';
  if (auto words = TamLogClient::ParseTime(cut)) return words;
  if (auto words = ParseZoned(cut, clock)) return words;
  if (cut.size() >= 4 && (cut[1] == ':' || cut[2] == ':')) return ParseTimeOfDay(cut, clock.now);
  return std::nullopt;
}

}  // namespace TamLogCtl
