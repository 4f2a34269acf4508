#pragma once

// Numbers of things in sentences.

#include <cstdint>
#include <string>

namespace TamLogCtl {

// Returns "1 message" or "6 messages" for the noun "message".
inline std::string Counted(std::uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// Returns "1 message is" or "6 messages are".
inline std::string CountedAre(std::uint64_t count, const std::string& noun) {
  return Counted(count, noun) + (count == 1 ? " is" : " are");
}

}  // namespace TamLogCtl
