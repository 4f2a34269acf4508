#include "tamlogctl/base/time_bound.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

#include "client/message/time_zone.h"
#include "tamlogctl/base/time_arithmetic.h"

namespace TamLogCtl {

using std::chrono::minutes;
using TamLogClient::TimeWords;

namespace {

char Lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool IsDigit(char letter) {
  return letter >= '0' && letter <= '9';
}

std::optional<TimeWords> Midnight(TimeWords words, int daysOn) {
  std::fill(words.begin() + 3, words.end(), std::int16_t{0});
  return MovedBy(words, std::chrono::days(daysOn));
}

// Returns the moment in UTC at which the local clock shows `local`: one of two for an hour that it shows
// twice.
std::optional<TimeWords> UtcOf(const TimeWords& local, const BoundClock& clock) {
  if (!TamLogClient::IsRealTime(local)) return std::nullopt;
  const auto near = MovedBy(local, -minutes(clock.localOffset(local)));
  return near ? MovedBy(local, -minutes(clock.localOffset(*near))) : std::nullopt;
}

std::optional<TimeWords> LocalOf(const std::optional<TimeWords>& utc, const BoundClock& clock) {
  return utc ? MovedBy(*utc, minutes(clock.localOffset(*utc))) : std::nullopt;
}

// Returns the earliest local time that the clock showed between two moments in UTC.
std::optional<TimeWords> EarliestShown(const TimeWords& from, const TimeWords& to, const BoundClock& clock) {
  const auto first = LocalOf(from, clock);
  const int before = clock.localOffset(from);
  if (!first || clock.localOffset(to) >= before) return first;
  std::int64_t low = TamLogClient::MillisecondsSince1970(from, 0);
  std::int64_t high = TamLogClient::MillisecondsSince1970(to, 0);
  while (high - low > 1) {  // the clock was set back after low and not after high
    const std::int64_t middle = low + (high - low) / 2;
    (clock.localOffset(WordsSince1970(middle)) == before ? low : high) = middle;
  }
  return std::min(first, LocalOf(WordsSince1970(high), clock));
}

// Returns the local time that far from now; `sign` is 1 or -1.
std::optional<TimeWords> Distant(const TimeSpan& duration, int sign, const BoundClock& clock) {
  const auto day = MovedBy(clock.now, duration.days * sign);
  if (!day || duration.rest.count() == 0) return day;
  const auto utc = duration.days.count() == 0 && clock.utc ? clock.utc : UtcOf(*day, clock);
  const auto moved = utc ? MovedBy(*utc, duration.rest * sign) : std::nullopt;
  return moved && clock.earliest && sign < 0 ? EarliestShown(*moved, *utc, clock) : LocalOf(moved, clock);
}

std::string_view Trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

// -15m, +2h, 1 hour ago
std::optional<TimeWords> ParseRelative(std::string_view text, const BoundClock& clock) {
  constexpr std::string_view kAgo = " ago";
  const bool ago = text.ends_with(kAgo);
  if (ago) text.remove_suffix(kAgo.size());
  const bool sign = text.starts_with('-') || text.starts_with('+');
  if (ago == sign) return std::nullopt;  // one of them is needed
  const auto duration = ReadDuration(Trimmed(text.substr(sign ? 1 : 0)));
  return duration ? Distant(*duration, text.starts_with('+') ? 1 : -1, clock) : std::nullopt;
}

// @1767322800, @1767322800.5
std::optional<TimeWords> ParseSeconds(const std::string& text, const BoundClock& clock) {
  constexpr std::int64_t kMost = 253402300799;  // the end of the year 9999
  std::int64_t seconds = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data() + 1, end, seconds);
  if (error != std::errc() || seconds < 0 || seconds > kMost || text[1] == '-') return std::nullopt;
  std::int64_t fraction = 0;
  if (rest != end) {
    const std::string digits(rest + 1, end);
    if (*rest != '.' || digits.empty() || !std::all_of(digits.begin(), digits.end(), IsDigit))
      return std::nullopt;
    fraction = std::stoi((digits + "00").substr(0, 3));
  }
  return LocalOf(WordsSince1970(seconds * 1000 + fraction), clock);
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
  return LocalOf(MovedBy(*words, -minutes(*zone)), clock);
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

// HH:MM[:SS[.mmm]] of the day of `midnight`.
std::optional<TimeWords> ParseTimeOfDay(const std::string& text, const std::optional<TimeWords>& midnight) {
  if (!midnight || text.size() < 4 || (text[1] != ':' && text[2] != ':')) return std::nullopt;
  std::string day;
  TamLogClient::AppendTime(*midnight, ' ', day);
  return TamLogClient::ParseTime(day.substr(0, day.find(' ') + 1) + text);
}

// today, yesterday and tomorrow, alone or before a time of day.
std::optional<TimeWords> ParseDay(const std::string& text, const BoundClock& clock) {
  constexpr std::array<std::pair<std::string_view, int>, 3> kDays{
      {{"today", 0}, {"yesterday", -1}, {"tomorrow", 1}}};
  for (const auto& [name, days] : kDays) {
    if (!text.starts_with(name)) continue;
    const auto midnight = Midnight(clock.now, days);
    const std::string rest = text.substr(name.size());
    if (rest.empty()) return midnight;
    return rest.front() == ' ' ? ParseTimeOfDay(std::string(Trimmed(rest)), midnight) : std::nullopt;
  }
  return std::nullopt;
}

}  // namespace

BoundClock ClockOfNow(std::function<int(const TimeWords& utc)> localOffset) {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  const TimeWords utc = WordsSince1970(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
  const auto now = MovedBy(utc, minutes(localOffset(utc)));
  return {now.value_or(utc), std::move(localOffset), utc};
}

std::optional<TimeWords> ParseBound(std::string_view text, const BoundClock& clock) {
  std::string cut = WithMilliseconds(text);
  std::transform(cut.begin(), cut.end(), cut.begin(), Lower);
  if (cut == "now") return clock.now;
  if (auto words = ParseDay(cut, clock)) return words;
  if (cut.starts_with('@')) return ParseSeconds(cut, clock);
  if (auto words = ParseRelative(cut, clock)) return words;
  if (cut.size() > 10 && cut[10] == 't') cut[10] = 'T';
  if (auto words = TamLogClient::ParseTime(cut)) return words;
  if (auto words = ParseZoned(cut, clock)) return words;
  return ParseTimeOfDay(cut, Midnight(clock.now, 0));
}

}  // namespace TamLogCtl
