#pragma once

// How the bytes of a text are read. Messages do not say how their texts are encoded: senders on Windows
// commonly use the ANSI code page of their machine, others UTF-8. An encoding splits a text into pieces that
// can be read, which it hands on as UTF-8, and single bytes that cannot.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "client/message/utf8.h"

namespace TamLogClient {

// What bytes 0x80 to 0xFF of a single-byte encoding mean, as UTF-16 units; 0: nothing. Bytes below are ASCII.
using UpperHalf = std::array<char16_t, 128>;

// A value; a copy is cheap. May be used from several threads.
class TextEncoding {
 public:
  // UTF-8 where the whole text is UTF-8. A text that is not is read by `fallback`, or stays UTF-8 with bytes
  // that cannot be read when there is none. (Text of a code page that happens to be valid UTF-8 is very rare,
  // plain ASCII apart, which is the same in both.) `fallback` has to outlive the encoding.
  static TextEncoding Guessed(const UpperHalf* fallback = nullptr) { return {true, fallback}; }

  // By the name users type, without regard to case: utf-8, ascii, latin-1, windows-1250 to windows-1252,
  // cp437, cp850, and other common spellings of these.
  static std::optional<TextEncoding> FromName(std::string_view name);

  // Nobody said how texts are encoded.
  bool IsGuessed() const { return guessed; }

  // Calls readable(std::string_view utf8) and unreadable(char byte), in the order of the text. The views are
  // valid during the call only.
  template <typename Readable, typename Unreadable>
  void Decode(std::string_view text, const Readable& readable, const Unreadable& unreadable) const;

 private:
  TextEncoding(bool guess, const UpperHalf* table) : guessed(guess), upperHalf(table) {}

  template <typename Readable, typename Unreadable>
  static void DecodeUtf8(std::string_view text, const Readable& readable, const Unreadable& unreadable);
  template <typename Readable, typename Unreadable>
  void DecodeByTable(std::string_view text, const Readable& readable, const Unreadable& unreadable) const;

  bool guessed;
  const UpperHalf* upperHalf;  // null: UTF-8
};

// The table of a Windows code page by its number; null for those that are not known here.
const UpperHalf* UpperHalfOfCodePage(unsigned codePage);

// The names that FromName shows to users.
inline constexpr std::string_view kEncodingNames =
    "utf-8, ascii, latin-1, windows-1250, windows-1251, windows-1252, cp437, cp850";

// True when every byte is ASCII and printable: such a text is the same in every encoding and every format
// that does not quote.
bool IsPlainText(std::string_view text);

// Writes the UTF-8 of `unit`, which is no surrogate, and returns its length in bytes, 1 to 3.
std::size_t EncodeUtf8(char16_t unit, char* to);

template <typename Readable, typename Unreadable>
void TextEncoding::Decode(std::string_view text, const Readable& readable,
                          const Unreadable& unreadable) const {
  if (IsPlainText(text)) {
    if (!text.empty()) readable(text);
  } else if (upperHalf == nullptr || (guessed && IsValidUtf8(text))) {
    DecodeUtf8(text, readable, unreadable);
  } else {
    DecodeByTable(text, readable, unreadable);
  }
}

template <typename Readable, typename Unreadable>
void TextEncoding::DecodeUtf8(std::string_view text, const Readable& readable, const Unreadable& unreadable) {
  while (!text.empty()) {
    std::size_t valid = 0;
    while (const std::size_t length = Utf8SequenceLength(text.substr(valid))) valid += length;
    if (valid > 0) readable(text.substr(0, valid));
    if (valid < text.size()) unreadable(text[valid++]);
    text.remove_prefix(valid);
  }
}

template <typename Readable, typename Unreadable>
void TextEncoding::DecodeByTable(std::string_view text, const Readable& readable,
                                 const Unreadable& unreadable) const {
  std::array<char, 384> piece{};
  std::size_t length = 0;
  const auto handOn = [&] {
    if (length > 0) readable(std::string_view(piece.data(), length));
    length = 0;
  };
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    const char16_t unit = byte < 0x80 ? char16_t{byte} : (*upperHalf)[byte - 0x80U];
    if (byte >= 0x80 && unit == 0) {
      handOn();
      unreadable(character);
      continue;
    }
    if (length + 3 > piece.size()) handOn();
    length += EncodeUtf8(unit, piece.data() + length);
  }
  handOn();
}

}  // namespace TamLogClient
