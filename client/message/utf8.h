#pragma once

// UTF-8 as texts of messages hold it. Their encoding is not stated: valid UTF-8 is read as such, other bytes
// are shown one by one.

#include <cstddef>
#include <string>
#include <string_view>

namespace TamLogClient {

// Returns the length in bytes (1 to 4) of the well-formed UTF-8 sequence at the front of `text`, or 0.
std::size_t Utf8SequenceLength(std::string_view text);

bool IsValidUtf8(std::string_view text);

// Returns a to z for A to Z, and any other byte unchanged, whatever the locale.
constexpr char LowerCase(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + ('a' - 'A')) : letter;
}

// Returns whether `text` begins with one of U+0080 to U+009F: control characters that some terminals obey.
constexpr bool BeginsWithUpperControl(std::string_view text) {
  return text.size() >= 2 && text[0] == '\xC2' && static_cast<unsigned char>(text[1]) >= 0x80 &&
         static_cast<unsigned char>(text[1]) <= 0x9F;
}

// Returns the length in bytes of the character at the front of `text` if a terminal may obey it, else 0: a
// control character (to U+001F, U+007F to U+009F), a separator of lines (U+2028, U+2029), or a character that
// changes the direction of writing (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069).
std::size_t ControlLength(std::string_view text);

// Appends \u and the four hexadecimal digits of the character, which is one of ControlLength's.
void AppendUnicodeEscape(std::string_view character, std::string& out);

// Appends `text` so that it is safe to show: characters that a terminal may obey (ControlLength) become \n,
// \t, \r or the \xNN of their bytes, and so do bytes that are not UTF-8. Printable text, backslashes
// included, stays unchanged. All programs show texts from outside by this function.
void AppendVisible(std::string_view text, std::string& out);

// Returns the longest prefix of at most `limit` bytes that does not cut a character in two.
std::string_view CutAtCharacter(std::string_view text, std::size_t limit);

}  // namespace TamLogClient
