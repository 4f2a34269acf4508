#include "util/clock.h"

#include "util/win32.h"

// abort() ends a process with another exit code there, and nothing else was tried with it either. Its clock()
// stops after 24.8 days; ours does not depend on it.
#ifdef _UCRT
#error "Build with a toolchain for msvcrt.dll: the server is not made for the universal run-time (UCRT)."
#endif

namespace TamLogUtil {

std::uint64_t ReadClock() {
  return GetTickCount64();
}

void SleepFor(std::uint32_t milliseconds) {
  Sleep(milliseconds);
}

}  // namespace TamLogUtil
