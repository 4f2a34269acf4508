#pragma once

// The system's own words for its error codes.

#include <cstdint>
#include <string>

namespace TamLogCtl {

// Returns the system's text for one of its error codes, without a full stop, and the code: "The system cannot
// find the path specified (error 3)"; "error 3" when it has no text. UTF-8.
std::string SystemText(std::uint32_t code);

}  // namespace TamLogCtl
