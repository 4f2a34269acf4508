#pragma once

// Turns processor faults during accesses to the mapped log file into C++ exceptions.
//
// GCC never calls a translator installed with _set_se_translator, so a hand-written stack frame with its own
// exception handler does the translation (fault_guard.cpp). The frame ends with the block, so an outer
// handler is in effect again when a code is rethrown.
//
// Destructors of objects inside the guarded block do NOT run when a structured exception ends it: the block
// must consist of plain copies, without locks or owners. C++ exceptions pass through as usual. Any thread;
// may be nested.

#include <cstdint>
#include <memory>
#include <type_traits>

namespace TamLogUtil {

// The code that the system raises when it cannot read or write the file of a view.
inline constexpr std::uint32_t kInPageError = 0xC0000006U;
inline constexpr int kMappedAccessAttempts = 10;

// Calls function(argument). Returns 0 when that returned, else the code of the structured exception that
// ended it.
extern "C" std::uint32_t RunUnderFaultGuard(void (*function)(void*), void* argument);

// Throws ExceptionFileMapIO "Failed to access File Map View".
[[noreturn]] void ThrowMappedAccessFailed();

// Runs `block`, and again from its start after an in-page error, kMappedAccessAttempts times in all; then
// throws ExceptionFileMapIO "Failed to access File Map View". Any other structured exception is thrown as its
// code, a std::uint32_t, which no handler of ExceptionBase catches.
template <class Block>
void AccessMappedView(Block&& block) {
  using Plain = std::remove_reference_t<Block>;
  for (int attempt = 1;; ++attempt) {
    const std::uint32_t code =
        RunUnderFaultGuard([](void* argument) { (*static_cast<Plain*>(argument))(); },
                           const_cast<void*>(static_cast<const void*>(std::addressof(block))));
    if (code == 0) return;
    // The exception is the code itself, a plain number.
    // NOLINTNEXTLINE(misc-throw-by-value-catch-by-reference,cert-err09-cpp,cert-err61-cpp)
    if (code != kInPageError) throw code;
    if (attempt == kMappedAccessAttempts) ThrowMappedAccessFailed();
  }
}

}  // namespace TamLogUtil
