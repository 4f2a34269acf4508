#pragma once

// A console accepts some ten thousand UTF-16 units at once, so a long text is written to it in pieces.

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace TamLogCtl {

// Returns the number of units of the first piece of `text`, which must not be empty: at most `most` (at least
// 2), and one less where the piece would end between the two halves of a character above U+FFFF.
template <typename Unit>
constexpr std::size_t PieceLength(std::basic_string_view<Unit> text, std::size_t most) {
  const std::size_t length = std::min(text.size(), most);
  const auto last = static_cast<unsigned>(text[length - 1]);
  const bool splits = length < text.size() && last >= 0xD800U && last <= 0xDBFFU;
  return splits && length > 1 ? length - 1 : length;
}

}  // namespace TamLogCtl
