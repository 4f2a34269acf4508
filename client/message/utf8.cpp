#include "client/message/utf8.h"

#include <algorithm>

#include "client/message/hex.h"

namespace TamLogClient {

namespace {

unsigned ByteAt(std::string_view text, std::size_t at) {
  return static_cast<unsigned char>(text[at]);
}

bool InRange(unsigned value, unsigned least, unsigned most) {
  return value >= least && value <= most;
}

std::size_t LengthByLead(unsigned lead) {
  if (lead < 0x80) return 1;
  if (InRange(lead, 0xC2, 0xDF)) return 2;
  if (InRange(lead, 0xE0, 0xEF)) return 3;
  if (InRange(lead, 0xF0, 0xF4)) return 4;
  return 0;
}

// Some leads allow fewer second bytes: that excludes overlong forms, surrogates and code points above
// U+10FFFF.
bool SecondByteFits(unsigned lead, unsigned second) {
  switch (lead) {
    case 0xE0:
      return InRange(second, 0xA0, 0xBF);
    case 0xED:
      return InRange(second, 0x80, 0x9F);
    case 0xF0:
      return InRange(second, 0x90, 0xBF);
    case 0xF4:
      return InRange(second, 0x80, 0x8F);
    default:
      return InRange(second, 0x80, 0xBF);
  }
}

void AppendEscapedByte(unsigned value, std::string& out) {
  switch (value) {
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    case '\t':
      out += "\\t";
      return;
    default:
      out += "\\x";
      const char byte = static_cast<char>(value);
      AppendHex({&byte, 1}, out);
  }
}

}  // namespace

std::size_t Utf8SequenceLength(std::string_view text) {
  if (text.empty()) return 0;
  const unsigned lead = ByteAt(text, 0);
  const std::size_t length = LengthByLead(lead);
  if (length < 2) return length;
  if (text.size() < length || !SecondByteFits(lead, ByteAt(text, 1))) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (!InRange(ByteAt(text, i), 0x80, 0xBF)) return 0;
  }
  return length;
}

bool IsValidUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = Utf8SequenceLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::size_t ControlLength(std::string_view text) {
  if (text.empty()) return 0;
  const unsigned lead = ByteAt(text, 0);
  if (lead < 0x20 || lead == 0x7F) return 1;
  if (BeginsWithUpperControl(text) || text.starts_with("\xD8\x9C")) return 2;
  if (lead != 0xE2 || text.size() < 3) return 0;
  const unsigned second = ByteAt(text, 1);
  const unsigned third = ByteAt(text, 2);
  const bool mark = second == 0x80 && (InRange(third, 0x8E, 0x8F) || InRange(third, 0xA8, 0xAE));
  const bool isolate = second == 0x81 && InRange(third, 0xA6, 0xA9);
  return mark || isolate ? 3 : 0;
}

void AppendUnicodeEscape(std::string_view character, std::string& out) {
  unsigned code = ByteAt(character, 0);
  if (character.size() == 2) code &= 0x1FU;
  if (character.size() == 3) code &= 0x0FU;
  for (std::size_t i = 1; i < character.size(); ++i) code = (code << 6U) | (ByteAt(character, i) & 0x3FU);
  const char bytes[] = {static_cast<char>(code >> 8U), static_cast<char>(code & 0xFFU)};
  out += "\\u";
  AppendHex({bytes, sizeof(bytes)}, out);
}

void AppendVisible(std::string_view text, std::string& out) {
  while (!text.empty()) {
    std::size_t plain = 0;
    while (plain < text.size() && text[plain] >= 0x20 && text[plain] < 0x7F)
      ++plain;  // 0x80 and up is negative
    out.append(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) return;
    const std::size_t length = Utf8SequenceLength(text);
    if (length == 0 || ControlLength(text) > 0) {
      const std::size_t bytes = std::max<std::size_t>(length, 1);
      for (std::size_t i = 0; i < bytes; ++i) AppendEscapedByte(ByteAt(text, i), out);
      text.remove_prefix(bytes);
      continue;
    }
    out.append(text.substr(0, length));
    text.remove_prefix(length);
  }
}

std::string_view CutAtCharacter(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  std::size_t end = limit;
  while (end > 0 && limit - end < 3 && InRange(ByteAt(text, end), 0x80, 0xBF)) --end;
  // Bytes that are not UTF-8 have no character to protect.
  if (end == 0 || Utf8SequenceLength(text.substr(end)) == 0) end = limit;
  return text.substr(0, end);
}

}  // namespace TamLogClient
