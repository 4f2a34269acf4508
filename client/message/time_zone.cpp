#include "client/message/time_zone.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace TamLogClient {

namespace {

int DigitsAt(std::string_view text, std::size_t at) {
  const auto digit = [text](std::size_t index) {
    return text[index] >= '0' && text[index] <= '9' ? text[index] - '0' : -1000;
  };
  return digit(at) * 10 + digit(at + 1);
}

// "+hh:mm" or "-hh:mm".
std::optional<int> ParseOffset(std::string_view text) {
  if (text.size() != 6 || (text[0] != '+' && text[0] != '-') || text[3] != ':') return std::nullopt;
  const int hours = DigitsAt(text, 1);
  const int minutes = DigitsAt(text, 4);
  if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59) return std::nullopt;
  return (text[0] == '-' ? -1 : 1) * (hours * 60 + minutes);
}

// Returns the days since 1970 of the first day of a month, counted from January of year 0. The words of an
// impossible time can exceed the calendar of <chrono>.
std::int64_t DaysSince1970(std::int64_t months) {
  // In years that begin with March the leap day comes last; the calendar repeats every 400 years.
  constexpr std::int64_t kMonthsOfTurn = 4800;
  constexpr std::int64_t kDaysOfTurn = 146097;
  constexpr std::int64_t kMarchOfYear0 = 719468;  // days from there to 1970
  const std::int64_t fromMarch = months - 2;
  const std::int64_t inTurn = (fromMarch % kMonthsOfTurn + kMonthsOfTurn) % kMonthsOfTurn;
  const std::int64_t turns = (fromMarch - inTurn) / kMonthsOfTurn;
  const std::int64_t year = inTurn / 12;
  const std::int64_t daysOfMonths = (153 * (inTurn % 12) + 2) / 5;  // 31, 30, 31, 30, 31 and again
  return turns * kDaysOfTurn + year * 365 + year / 4 - year / 100 + daysOfMonths - kMarchOfYear0;
}

}  // namespace

std::optional<TimeZone> TimeZone::FromName(std::string_view name, LocalOffset local) {
  if (name == "written") return TimeZone();
  if (name == "utc") return TimeZone(Kind::Utc);
  if (name == "local") {
    TimeZone zone(Kind::Local);
    zone.localOffset = std::move(local);
    return zone;
  }
  if (const auto offset = ParseOffset(name)) return TimeZone(Kind::Fixed, *offset);
  return std::nullopt;
}

std::optional<int> TimeZone::OffsetAt(const TimeWords& written) {
  if (kind == Kind::Written || !IsRealTime(written)) return std::nullopt;
  if (kind == Kind::Local) {
    TimeWords minute = written;
    std::fill(minute.begin() + 5, minute.end(), std::int16_t{0});
    if (minute != lastMinute) minutes = localOffset(minute);
    lastMinute = minute;
  }
  return minutes;
}

void TimeZone::AppendOffset(int offset, std::string& out) const {
  if (kind == Kind::Utc) {
    out += 'Z';
    return;
  }
  const int size = std::abs(offset);
  const auto digits = [&out](int value) {
    out += static_cast<char>('0' + value / 10);
    out += static_cast<char>('0' + value % 10);
  };
  out += offset < 0 ? '-' : '+';
  digits(size / 60);
  out += ':';
  digits(size % 60);
}

std::int64_t MillisecondsSince1970(const TimeWords& written, int offsetMinutes) {
  const std::int64_t months = std::int64_t{written[0]} * 12 + written[1] - 1;
  const std::int64_t days = DaysSince1970(months) + written[2] - 1;
  const std::int64_t minutes = (days * 24 + written[3]) * 60 + written[4] - offsetMinutes;
  return (minutes * 60 + written[5]) * 1000 + written[6];
}

}  // namespace TamLogClient
