#pragma once

// Turns processor faults met while touching the mapped log file into ordinary exceptions.
//
// GCC never calls a translator installed with _set_se_translator, so the translation is done by a
// hand-written stack frame with its own exception handler (fault_guard.cpp). It ends with the block: what was
// installed before is back in place by construction when a code is rethrown.
//
// Destructors of objects inside the guarded block do NOT run when a structured exception ends it: keep the
// block to plain copies, without locks or owners. C++ exceptions pass through as usual. Any thread; may be
// nested.

#include <cstdint>
#include <memory>
#include <type_traits>

namespace TamLogUtil {

// Raised by the system when the file behind a view could not be read or written.
inline constexpr std::uint32_t kInPageError = 0xC0000006U;
inline constexpr int kMappedAccessAttempts = 10;

// Runs function(argument). Returns 0 when it returned, otherwise the code of the structured exception that
// ended it.
extern "C" std::uint32_t RunUnderFaultGuard(void (*function)(void*), void* argument);

// Throws ExceptionFileMapIO "Failed to access File Map View".
[[noreturn]] void ThrowMappedAccessFailed();

// Runs `block`, again from its start while it ends with an in-page error, kMappedAccessAttempts times in all;
// then throws ExceptionFileMapIO "Failed to access File Map View". Any other structured exception leaves as
// its code, a std::uint32_t, which no handler of ExceptionBase catches.
template <class Block>
void AccessMappedView(Block&& block) {
  using Plain = std::remove_reference_t<Block>;
  for (int attempt = 1;; ++attempt) {
    const std::uint32_t code =
        RunUnderFaultGuard([](void* argument) { (*static_cast<Plain*>(argument))(); },
                           const_cast<void*>(static_cast<const void*>(std::addressof(block))));
    if (code == 0) return;
    // The code itself is the exception, a plain number.
    // NOLINTNEXTLINE(misc-throw-by-value-catch-by-reference,cert-err09-cpp,cert-err61-cpp)
    if (code != kInPageError) throw code;
    if (attempt == kMappedAccessAttempts) ThrowMappedAccessFailed();
  }
}

}  // namespace TamLogUtil
