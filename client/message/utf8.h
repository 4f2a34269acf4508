#pragma once

// Texts of messages have no stated encoding. They are taken as UTF-8 where they are valid UTF-8; what is not
// is shown byte by byte.

#include <cstddef>
#include <string>
#include <string_view>

namespace TamLogClient {

// Length in bytes (1 to 4) of the well-formed UTF-8 sequence at the front of `text`; 0 when there is none.
std::size_t Utf8SequenceLength(std::string_view text);

bool IsValidUtf8(std::string_view text);

// Appends `text` so that it is safe to show: control characters become \n, \t, \r or \xNN, and so do bytes
// that are not UTF-8. Printable text, backslashes included, stays as it is.
void AppendVisible(std::string_view text, std::string& out);

// The longest prefix of at most `limit` bytes that does not cut a character in two.
std::string_view CutAtCharacter(std::string_view text, std::size_t limit);

// Appends two hexadecimal digits per byte.
void AppendHex(std::string_view bytes, std::string& out);

}  // namespace TamLogClient
