#pragma once

// Fits long texts into messages: cut into several pieces, or cut off. Both keep characters whole (texts are
// taken as UTF-8 where they are valid UTF-8) and show by a mark that something follows or is missing.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace TamLogClient {

// Stands at the end of a text that goes on in the next message, and at the beginning of that one.
inline constexpr std::string_view kCutMark = "...";

// Pieces of at most `limit` bytes, marks included; a text that fits is its own only piece. `limit` has to
// leave room for two marks and a character of four bytes.
std::vector<std::string> SplitText(std::string_view text, std::size_t limit);

// At most `limit` bytes: the beginning of the text, and the mark when something was cut off.
std::string TruncateText(std::string_view text, std::size_t limit);

}  // namespace TamLogClient
