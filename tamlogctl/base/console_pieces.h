#pragma once

// Consoles take some ten thousand UTF-16 units at once at most, so a long text goes there in pieces.

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace TamLogCtl {

// How many units of `text` (not empty) may go first: `most` (at least 2), or one less where that would part
// the two halves of a character beyond the first 65,536.
template <typename Unit>
constexpr std::size_t PieceLength(std::basic_string_view<Unit> text, std::size_t most) {
  const std::size_t length = std::min(text.size(), most);
  const auto last = static_cast<unsigned>(text[length - 1]);
  const bool parts = length < text.size() && last >= 0xD800U && last <= 0xDBFFU;
  return parts && length > 1 ? length - 1 : length;
}

}  // namespace TamLogCtl
