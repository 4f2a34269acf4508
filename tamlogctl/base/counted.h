#pragma once

// Numbers of things in sentences.

#include <cstdint>
#include <string>

namespace TamLogCtl {

// Returns "1 message" or "6 messages" for the noun "message".
inline std::string Counted(std::uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace TamLogCtl
