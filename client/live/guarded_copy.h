#pragma once

// The only way in which the client copies mapped bytes. A page that cannot be read (the disk under the
// mapping fails, or the file was cut) raises a structured exception; here it becomes a return value.

#include <cstddef>
#include <cstdint>

// Copies `bytes` bytes. Returns 0 when all were copied, else the structured exception's code (0xC0000006 for
// an in-page error); then a part may have been copied. The areas must not overlap. No other code runs inside
// the frame. May be called from any thread.
extern "C" std::uint32_t TamLogClientGuardedCopy(void* to, const void* from, std::size_t bytes);
