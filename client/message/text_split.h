#pragma once

// Fits long texts into messages, by splitting or by truncating them. Both keep UTF-8 characters whole and put
// a mark where text continues or is missing.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace TamLogClient {

// Ends a text that continues in the next message, and begins that message.
inline constexpr std::string_view kCutMark = "...";

// Returns pieces of at most `limit` bytes each, marks included; a text that fits is returned as one piece.
// `limit` has to leave room for two marks and a character of four bytes.
std::vector<std::string> SplitText(std::string_view text, std::size_t limit);

// Returns at most `limit` bytes: the beginning of the text, and the mark when something was cut off.
std::string TruncateText(std::string_view text, std::size_t limit);

}  // namespace TamLogClient
