#pragma once

// Numbers and texts in columns. Only columns.cpp uses the library that formats them.

#include <cstddef>
#include <string>
#include <string_view>

namespace TamLogCtl {

// Returns `value` with `digits` digits after the point.
std::string Fixed(double value, int digits);

// Returns `text` padded with spaces to `width` columns of a terminal, of which some characters take two.
std::string AlignedLeft(std::string_view text, std::size_t width);
std::string AlignedRight(std::string_view text, std::size_t width);

}  // namespace TamLogCtl
