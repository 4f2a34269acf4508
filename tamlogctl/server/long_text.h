#pragma once

// What happens to a text of more than 256 bytes.

#include <cstdint>

namespace TamLogCtl {

enum class LongText : std::uint8_t { Refuse, Truncate, Split };

}  // namespace TamLogCtl
