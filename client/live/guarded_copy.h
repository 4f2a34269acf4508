#pragma once

// The only way in which the client copies mapped bytes. A page that cannot be read (the disk under the
// mapping fails, or the file was cut) raises a structured exception; here it becomes a return value.

#include <cstddef>
#include <cstdint>

// Copies `bytes` bytes. Returns 0 when all were copied, else the structured exception's code (0xC0000006 for
// an in-page error); then a part may have been copied. The areas must not overlap. No other code runs inside
// the frame. May be called from any thread.
//
// With a `stride`, copies `bytes` / 8 words that begin that many bytes after each other, and puts them side
// by side. Each word is copied in one access of the processor; so are 8 bytes without a stride.
extern "C" std::uint32_t TamLogClientGuardedCopy(void* to, const void* from, std::size_t bytes,
                                                 std::size_t stride = 0);

namespace TamLogClient {

// Copies like TamLogClientGuardedCopy, and tries again after an in-page error, which may be transient.
// Returns whether all was copied.
inline bool GuardedCopy(void* to, const void* from, std::size_t bytes, std::size_t stride = 0) {
  constexpr int kAttempts = 10;
  constexpr std::uint32_t kInPageError = 0xC0000006U;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const std::uint32_t code = TamLogClientGuardedCopy(to, from, bytes, stride);
    if (code == 0) return true;
    if (code != kInPageError) return false;  // any other fault is final
  }
  return false;
}

}  // namespace TamLogClient
