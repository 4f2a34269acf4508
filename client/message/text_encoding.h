#pragma once

// Decodes the texts of messages. Messages do not state their encoding: senders on Windows commonly use the
// ANSI code page of their machine, others UTF-8. An encoding splits a text into readable pieces, which it
// passes on as UTF-8, and single bytes that it cannot read.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "client/message/utf8.h"

namespace TamLogClient {

// The UTF-16 units for bytes 0x80 to 0xFF of a single-byte encoding; 0: undefined. Bytes below are ASCII.
using UpperHalf = std::array<char16_t, 128>;

// A value; a copy is cheap. May be used from several threads.
class TextEncoding {
 public:
  // Reads a text as UTF-8 when all of it is valid UTF-8. Otherwise `fallback` decodes it, or, when that is
  // null, UTF-8 with unreadable bytes. (Code-page text that happens to be valid UTF-8 is very rare, except
  // ASCII, which is the same in both.) `fallback` has to outlive the encoding.
  static TextEncoding Guessed(const UpperHalf* fallback = nullptr) { return {true, fallback}; }

  // Returns the encoding with a name that users type, in either case: utf-8, ascii, latin-1, windows-1250 to
  // windows-1252, cp437, cp850, and other common spellings of these. Nothing for other names.
  static std::optional<TextEncoding> FromName(std::string_view name);

  // Returns whether the encoding is not stated but guessed.
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

// Returns the table of a Windows code page by its number; null for an unknown one.
const UpperHalf* UpperHalfOfCodePage(unsigned codePage);

// The names that FromName shows to users.
inline constexpr std::string_view kEncodingNames =
    "utf-8, ascii, latin-1, windows-1250, windows-1251, windows-1252, cp437, cp850";

// Returns whether every byte is printable ASCII: such a text is the same in every encoding, and in every
// format that does not quote.
bool IsPlainText(std::string_view text);

// Writes the UTF-8 of `unit`, which must not be a surrogate, to `to` and returns its length in bytes, 1 to 3.
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
  const auto flush = [&] {
    if (length > 0) readable(std::string_view(piece.data(), length));
    length = 0;
  };
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    const char16_t unit = byte < 0x80 ? char16_t{byte} : (*upperHalf)[byte - 0x80U];
    if (byte >= 0x80 && unit == 0) {
      flush();
      unreadable(character);
      continue;
    }
    if (length + 3 > piece.size()) flush();
    length += EncodeUtf8(unit, piece.data() + length);
  }
  flush();
}

}  // namespace TamLogClient
