#include "client/format/format_parts.h"

#include <array>
#include <charconv>

namespace TamLogClient {

namespace {

template <typename Number>
void AppendDigits(Number value, std::string& out) {
  std::array<char, 24> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  out.append(digits.data(), end);
}

}  // namespace

void AppendNumber(std::uint64_t value, std::string& out) {
  AppendDigits(value, out);
}

void AppendNumber(int value, std::string& out) {
  AppendDigits(value, out);
}

void AppendStamp(const MessageToFormat& message, const FormatOptions& options, char separator,
                 std::string& out) {
  AppendTime(message.words, separator, out);
  if (message.offset) options.zone.AppendOffset(*message.offset, out);
}

void AppendShown(std::string_view text, const TextEncoding& encoding, std::string& out) {
  encoding.Decode(
      text, [&out](std::string_view utf8) { AppendVisible(utf8, out); },
      [&out](char byte) {
        out += "\\x";
        AppendHex({&byte, 1}, out);
      });
}

bool AppendAsUtf8(std::string_view text, const TextEncoding& encoding, std::string& out) {
  bool complete = true;
  encoding.Decode(
      text, [&out](std::string_view utf8) { out += utf8; },
      [&](char /*byte*/) {
        out += kReplacement;
        complete = false;
      });
  return complete;
}

bool IsSameAsUtf8(std::string_view text, const TextEncoding& encoding) {
  if (IsPlainText(text)) return true;
  std::string written;
  return AppendAsUtf8(text, encoding, written) && written == text;
}

bool IsSameShown(std::string_view text, const TextEncoding& encoding) {
  if (IsPlainText(text)) return true;
  std::string written;
  AppendShown(text, encoding, written);
  return written == text;
}

namespace {

// Nothing when the text as written has all of its bytes.
void AppendHexUnlessSame(std::string_view text, const TextEncoding& encoding, std::string& out) {
  if (!IsSameAsUtf8(text, encoding)) AppendHex(text, out);
}

}  // namespace

void AppendSimple(Field field, const MessageToFormat& message, const FormatOptions& options,
                  std::string& out) {
  switch (field) {
    case Field::Time:
      return AppendStamp(message, options, ' ', out);
    case Field::Seq:
      return AppendNumber(message.view.Sequence(), out);
    case Field::Type:
      return AppendNumber(std::uint64_t{message.view.Type()}, out);
    case Field::Label:
      return options.typeNames.Append(message.view.Type(), out);
    case Field::Origin:
      return AppendHexOf(message.view.Body().origin, out);
    case Field::Tail:
      return AppendHexOf(message.view.Body().tail, out);
    case Field::Spare:
      return AppendNumber(int{message.words[7]}, out);
    case Field::Late:
      out += message.late ? "true" : "false";
      return;
    case Field::Cursor:
      out += message.cursor;
      return;
    case Field::SourceHex:
      return AppendHexUnlessSame(message.view.Source(), options.encoding, out);
    case Field::TextHex:
      return AppendHexUnlessSame(message.view.Text(), options.encoding, out);
    case Field::Source:
    case Field::Text:
    case Field::Host:
      return;
  }
}

}  // namespace TamLogClient
