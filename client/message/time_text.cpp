#include "client/message/time_text.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>

namespace TamLogClient {

namespace {

char* Put(char character, char* to) {
  *to = character;
  return to + 1;
}

char* PutDigits(int value, int width, char* to) {
  for (int i = width - 1; i >= 0; --i) {
    to[i] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
  return to + width;
}

// Takes digits from the front of `text`; -1 when there are fewer than `least` or more than `most`.
int TakeNumber(std::string_view& text, std::size_t least, std::size_t most) {
  std::size_t digits = 0;
  int value = 0;
  while (digits < text.size() && digits <= most && text[digits] >= '0' && text[digits] <= '9') {
    value = value * 10 + (text[digits] - '0');
    ++digits;
  }
  if (digits < least || digits > most) return -1;
  text.remove_prefix(digits);
  return value;
}

bool TakeCharacter(std::string_view& text, char wanted) {
  if (text.empty() || text.front() != wanted) return false;
  text.remove_prefix(1);
  return true;
}

bool TakeWord(std::string_view& text, std::size_t least, std::size_t most, std::int16_t& word) {
  const int value = TakeNumber(text, least, most);
  if (value < 0) return false;
  word = static_cast<std::int16_t>(value);
  return true;
}

bool TakeDate(std::string_view& text, TimeWords& words) {
  return TakeWord(text, 4, 4, words[0]) && TakeCharacter(text, '-') && TakeWord(text, 1, 2, words[1]) &&
         TakeCharacter(text, '-') && TakeWord(text, 1, 2, words[2]);
}

// ".5" means 500 milliseconds, as in any decimal fraction.
bool TakeFraction(std::string_view& text, std::int16_t& word) {
  const std::size_t before = text.size();
  const int value = TakeNumber(text, 1, 3);
  if (value < 0) return false;
  int scaled = value;
  for (std::size_t digits = before - text.size(); digits < 3; ++digits) scaled *= 10;
  word = static_cast<std::int16_t>(scaled);
  return true;
}

bool TakeTimeOfDay(std::string_view& text, TimeWords& words) {
  if (!TakeWord(text, 1, 2, words[3]) || !TakeCharacter(text, ':') || !TakeWord(text, 2, 2, words[4]))
    return false;
  if (!TakeCharacter(text, ':')) return true;
  if (!TakeWord(text, 2, 2, words[5])) return false;
  return !TakeCharacter(text, '.') || TakeFraction(text, words[6]);
}

std::optional<TimeWords> ParseRawWords(std::string_view text) {
  TimeWords words{};
  for (std::size_t i = 0; i < 7; ++i) {
    if (i > 0 && !TakeCharacter(text, ',')) return std::nullopt;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, words[i]);
    if (error != std::errc()) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
  }
  if (!text.empty()) return std::nullopt;
  return words;
}

}  // namespace

TimeWords WordsOf(const LogMessageBody& body) {
  TimeWords words{};
  std::memcpy(words.data(), body.timestamp, sizeof(body.timestamp));
  return words;
}

void SetTime(LogMessageBody& body, const TimeWords& words) {
  std::memcpy(body.timestamp, words.data(), sizeof(body.timestamp));
}

bool IsRealTime(const TimeWords& words) {
  const auto within = [&words](std::size_t word, int least, int most) {
    return words[word] >= least && words[word] <= most;
  };
  if (!within(0, 1, 9999) || !within(1, 1, 12) || !within(2, 1, 31)) return false;
  const std::chrono::year_month_day date{std::chrono::year(words[0]),
                                         std::chrono::month(static_cast<unsigned>(words[1])),
                                         std::chrono::day(static_cast<unsigned>(words[2]))};
  return date.ok() && within(3, 0, 23) && within(4, 0, 59) && within(5, 0, 59) && within(6, 0, 999);
}

void AppendTime(const TimeWords& words, char separator, std::string& out) {
  if (!IsRealTime(words)) {
    for (std::size_t i = 0; i < 7; ++i) {
      out += i == 0 ? '!' : ',';
      out += std::to_string(words[i]);
    }
    return;
  }
  std::array<char, 23> text{};
  char* at = text.data();
  at = PutDigits(words[0], 4, at);
  at = PutDigits(words[1], 2, Put('-', at));
  at = PutDigits(words[2], 2, Put('-', at));
  at = PutDigits(words[3], 2, Put(separator, at));
  at = PutDigits(words[4], 2, Put(':', at));
  at = PutDigits(words[5], 2, Put(':', at));
  PutDigits(words[6], 3, Put('.', at));
  out.append(text.data(), text.size());
}

std::optional<TimeWords> ParseTime(std::string_view text) {
  if (TakeCharacter(text, '!')) return ParseRawWords(text);
  TimeWords words{};
  if (!TakeDate(text, words)) return std::nullopt;
  if (TakeCharacter(text, ' ') || TakeCharacter(text, 'T')) {
    if (!TakeTimeOfDay(text, words)) return std::nullopt;
  }
  if (!text.empty() || !IsRealTime(words)) return std::nullopt;
  return words;
}

std::uint64_t KeyOf(const TimeWords& words) {
  LogMessageBody body{};
  SetTime(body, words);
  return TimeKey(body);
}

}  // namespace TamLogClient
