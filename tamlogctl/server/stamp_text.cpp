#include "tamlogctl/server/stamp_text.h"

#include <algorithm>
#include <array>

#include "client/message/time_zone.h"
#include "tamlogctl/base/locale.h"
#include "tamlogctl/base/time_arithmetic.h"

namespace TamLogCtl {

namespace {

using TamLogClient::TimeWords;

// Reads a stamp from its front; once something does not fit, everything fails.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest(text) {}

  bool Failed() const { return failed; }
  std::string_view Rest() const { return rest; }
  char Next() const { return rest.empty() ? '\0' : rest.front(); }

  bool Skip(char letter) {
    if (Next() != letter || rest.empty()) return false;
    rest.remove_prefix(1);
    return true;
  }

  // Takes one of `letters` and returns it.
  char TakeOf(std::string_view letters) {
    const char letter = Next();
    if (rest.empty() || letters.find(letter) == std::string_view::npos) return Fail();
    rest.remove_prefix(1);
    return letter;
  }

  // Takes a number of exactly `digits` digits.
  int TakeNumber(std::size_t digits) {
    int number = 0;
    for (std::size_t i = 0; i < digits; ++i) {
      const char digit = TakeOf("0123456789");
      number = number * 10 + (digit - '0');
    }
    return failed ? 0 : number;
  }

  // Takes the digits after the decimal point and returns milliseconds.
  int TakeFraction() {
    constexpr std::array<int, 3> kWorth{100, 10, 1};
    int milliseconds = 0;
    std::size_t digits = 0;
    for (; IsDigit(Next()); ++digits) {
      if (digits < kWorth.size()) milliseconds += kWorth[digits] * (Next() - '0');
      rest.remove_prefix(1);
    }
    if (digits == 0) Fail();
    return milliseconds;
  }

  static bool IsDigit(char letter) { return letter >= '0' && letter <= '9'; }

 private:
  char Fail() {
    failed = true;
    return '0';
  }

  std::string_view rest;
  bool failed = false;
};

void TakeTimeOfDay(Scanner& from, TimeWords& words) {
  words[3] = static_cast<std::int16_t>(from.TakeNumber(2));
  from.TakeOf(":");
  words[4] = static_cast<std::int16_t>(from.TakeNumber(2));
  if (!from.Skip(':')) return;
  words[5] = static_cast<std::int16_t>(from.TakeNumber(2));
  if (from.Skip('.') || from.Skip(',')) words[6] = static_cast<std::int16_t>(from.TakeFraction());
}

// Takes Z, +01:00, +0100 or +01; nothing when no zone stands there. After a blank the minutes must follow: a
// text may begin with a number ("-12 degrees").
std::optional<int> TakeZone(Scanner& from) {
  Scanner zone = from;
  const bool blank = zone.Skip(' ');
  std::optional<int> offset;
  if (!blank && zone.Skip('Z')) {
    offset = 0;
  } else if (zone.Next() == '+' || zone.Next() == '-') {
    const int sign = zone.TakeOf("+-") == '-' ? -1 : 1;
    const int hours = zone.TakeNumber(2);
    const bool colon = zone.Skip(':');
    const int minutes = blank || colon || Scanner::IsDigit(zone.Next()) ? zone.TakeNumber(2) : 0;
    const char after = zone.Next();
    const bool ends = after == '\0' || after == ' ' || after == '\t' || after == ']';
    if (!zone.Failed() && ends && hours < 24 && minutes < 60) offset = sign * (hours * 60 + minutes);
  }
  if (offset) from = zone;
  return offset;
}

std::string_view WithoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

// A stamp ends before a blank, a colon or the end of the line.
bool EndsHere(const Scanner& scanner) {
  const char after = scanner.Next();
  return scanner.Rest().empty() || after == ' ' || after == '\t' || after == ':';
}

constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
constexpr std::string_view kDays = "SunMonTueWedThuFriSat";

// Returns the number, from 1, of the name of three letters that the text begins with, before a blank; 0 for
// any other text.
std::int16_t NameNumber(std::string_view text, std::string_view names) {
  if (text.size() < 4 || text[3] != ' ') return 0;
  const std::size_t place = names.find(text.substr(0, 3));
  return place == std::string_view::npos || place % 3 != 0 ? std::int16_t{0}
                                                           : static_cast<std::int16_t>(place / 3 + 1);
}

// " 2 03:04:05" or "12 03:04:05"
void TakeDayAndTime(Scanner& from, std::int16_t month, TimeWords& words) {
  words[1] = month;
  words[2] = static_cast<std::int16_t>(from.TakeNumber(from.Skip(' ') ? 1 : 2));
  from.TakeOf(" ");
  TakeTimeOfDay(from, words);
}

}  // namespace

std::optional<Stamp> TakeCalendarStamp(std::string_view& line) {
  const std::size_t begin = line.starts_with('[') ? 1 : 0;
  if (NameNumber(line.substr(begin), kDays) == 0) return std::nullopt;
  const std::string_view date = line.substr(begin + 4);
  const std::int16_t month = NameNumber(date, kMonths);
  if (month == 0) return std::nullopt;
  Scanner from(date.substr(4));
  Stamp stamp;
  TakeDayAndTime(from, month, stamp.words);
  from.TakeOf(" ");
  stamp.words[0] = static_cast<std::int16_t>(from.TakeNumber(4));
  if (begin > 0) from.TakeOf("]");
  if (from.Failed() || !EndsHere(from) || !TamLogClient::IsRealTime(stamp.words)) return std::nullopt;
  line = WithoutBlanks(from.Rest());
  return stamp;
}

std::optional<Stamp> TakeIsoStamp(std::string_view& line) {
  Scanner from(line);
  const bool bracket = from.Skip('[');
  Stamp stamp;
  stamp.words[0] = static_cast<std::int16_t>(from.TakeNumber(4));
  const char between = from.TakeOf("-/.");
  stamp.words[1] = static_cast<std::int16_t>(from.TakeNumber(2));
  if (!from.Skip(between)) return std::nullopt;
  stamp.words[2] = static_cast<std::int16_t>(from.TakeNumber(2));
  if (from.TakeOf(" T") == ' ') from.Skip(' ');
  TakeTimeOfDay(from, stamp.words);
  stamp.offset = TakeZone(from);
  if (bracket && !from.Skip(']')) return std::nullopt;
  if (from.Failed() || !EndsHere(from) || !TamLogClient::IsRealTime(stamp.words)) return std::nullopt;
  from.Skip(':');
  line = WithoutBlanks(from.Rest());
  return stamp;
}

std::optional<Stamp> TakeSyslogStamp(std::string_view& line, const TimeWords& newest) {
  const std::int16_t month = NameNumber(line, kMonths);
  if (month == 0) return std::nullopt;
  Scanner from(line.substr(4));
  Stamp stamp;
  TakeDayAndTime(from, month, stamp.words);
  if (from.Failed() || !EndsHere(from)) return std::nullopt;
  constexpr std::int64_t kDayMs = 86400000;
  const std::int64_t latest = TamLogClient::MillisecondsSince1970(newest, 0) + kDayMs;
  // Four years back there is a 29th of February.
  for (int year = newest[0]; year >= std::max(1, newest[0] - 8); --year) {
    stamp.words[0] = static_cast<std::int16_t>(year);
    if (!TamLogClient::IsRealTime(stamp.words) ||
        TamLogClient::MillisecondsSince1970(stamp.words, 0) > latest)
      continue;
    line = WithoutBlanks(from.Rest());
    return stamp;
  }
  return std::nullopt;
}

std::optional<Stamp> ParseStamp(std::string_view text) {
  if (const auto words = TamLogClient::ParseTime(text)) return Stamp{*words, {}};
  // The date has hyphens, too.
  const std::size_t zone = text.size() < 11 ? std::string_view::npos : text.find_first_of("Z+-", 11);
  if (zone == std::string_view::npos) {
    std::string_view rest = text;
    const auto stamp = TakeIsoStamp(rest);
    return stamp && rest.empty() ? stamp : std::nullopt;
  }
  Scanner from(text.substr(zone));
  const auto offset = TakeZone(from);
  auto words = TamLogClient::ParseTime(text.substr(0, zone));
  if (!words && offset) {
    std::string_view rest = text.substr(0, zone);
    if (const auto stamp = TakeIsoStamp(rest); stamp && rest.empty()) words = stamp->words;
  }
  if (!offset || !from.Rest().empty() || !words) return std::nullopt;
  return Stamp{*words, offset};
}

TimeWords LocalTimeAt(std::int64_t milliseconds) {
  return WordsSince1970(milliseconds + std::int64_t{OffsetAtUtc(WordsSince1970(milliseconds))} * 60000);
}

}  // namespace TamLogCtl
