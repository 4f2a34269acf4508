#include "driver/message_lines.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <istream>
#include <string>

namespace {

constexpr std::size_t kMaxTextBytes = kTextSize - 1;

// Parses the whole of `digits` as a number.
template <class Number>
bool ReadNumber(std::string_view digits, Number& number) {
  const char* end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, number);
  return !digits.empty() && result.ec == std::errc() && result.ptr == end;
}

struct TimePart {
  std::size_t offset;
  std::size_t length;
  std::int16_t lowest;
  std::int16_t highest;
};

// The positions of the parts of "YYYY-MM-DD HH:MM:SS.mmm", in the order of the time stamp's words.
constexpr std::array<TimePart, 7> kTimeParts = {{{0, 4, 0, 9999},
                                                 {5, 2, 1, 12},
                                                 {8, 2, 1, 31},
                                                 {11, 2, 0, 23},
                                                 {14, 2, 0, 59},
                                                 {17, 2, 0, 59},
                                                 {20, 3, 0, 999}}};
constexpr std::string_view kTimeForm = "0000-00-00 00:00:00.000";
constexpr std::size_t kShortTimeLength = 19;

bool HasTimeForm(std::string_view time) {
  if (time.size() != kTimeForm.size() && time.size() != kShortTimeLength) return false;
  return std::equal(time.begin(), time.end(), kTimeForm.begin(), [](char seen, char form) {
    return form == '0' ? seen >= '0' && seen <= '9' : seen == form;
  });
}

void ParseTime(std::string_view time, LogMessageBody& body) {
  if (!HasTimeForm(time)) {
    throw MessageLineError("the time \"" + std::string(time) +
                           "\" is not of the form YYYY-MM-DD HH:MM:SS[.mmm]");
  }
  for (std::size_t i = 0; i < kTimeParts.size() && kTimeParts[i].offset < time.size(); ++i) {
    const TimePart& part = kTimeParts[i];
    std::int16_t value = 0;
    if (!ReadNumber(time.substr(part.offset, part.length), value) || value < part.lowest ||
        value > part.highest) {
      throw MessageLineError("the time \"" + std::string(time) + "\" does not exist");
    }
    body.timestamp[i] = value;
  }
}

// The longest prefix of at most 256 bytes that does not end inside a UTF-8 character.
std::string_view CutText(std::string_view text) {
  std::size_t length = kMaxTextBytes;
  const auto continues = [&text](std::size_t at) {
    return (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U;
  };
  // A character has at most three continuation bytes; a longer run is not UTF-8 and truncated at the limit.
  for (std::size_t back = 0; back < 4; ++back) {
    if (!continues(length - back)) return text.substr(0, length - back);
  }
  return text.substr(0, length);
}

void CopyText(std::string_view name, std::string_view text, LongText longText, char (&field)[kTextSize]) {
  if (text.find('\0') != std::string_view::npos) {
    throw MessageLineError("the " + std::string(name) + " holds a zero byte");
  }
  if (text.size() > kMaxTextBytes) {
    if (longText == LongText::kRefuse) {
      throw MessageLineError("the " + std::string(name) + " has " + std::to_string(text.size()) +
                             " bytes; at most 256 fit (--truncate cuts it)");
    }
    text = CutText(text);
  }
  std::copy(text.begin(), text.end(), field);
}

// Removes the field before the next tab from `line` and returns it.
std::string_view TakeField(std::string_view& line) {
  const std::size_t tab = line.find('\t');
  if (tab == std::string_view::npos) {
    throw MessageLineError("expected four fields (time, type, source, text) with a tab between two of them");
  }
  const std::string_view field = line.substr(0, tab);
  line.remove_prefix(tab + 1);
  return field;
}

}  // namespace

LogMessageBody ParseMessageLine(std::string_view line, LongText longText) {
  LogMessageBody body{};
  const std::string_view time = TakeField(line);
  const std::string_view type = TakeField(line);
  const std::string_view source = TakeField(line);
  ParseTime(time, body);
  std::uint32_t typeNumber = 0;
  if (!ReadNumber(type, typeNumber)) {
    throw MessageLineError("the type \"" + std::string(type) + "\" is not a number from 0 to 4294967295");
  }
  body.type = typeNumber;
  CopyText("source", source, longText, body.source);
  CopyText("text", line, longText, body.text);
  return body;
}

std::vector<LogMessageBody> ReadMessageLines(std::istream& input, LongText longText) {
  std::vector<LogMessageBody> messages;
  std::string line;
  for (std::size_t number = 1; std::getline(input, line); ++number) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    try {
      messages.push_back(ParseMessageLine(line, longText));
    } catch (const MessageLineError& error) {
      throw MessageLineError("line " + std::to_string(number) + ": " + error.what());
    }
  }
  return messages;
}
