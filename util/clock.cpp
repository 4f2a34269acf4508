#include "util/clock.h"

#include <ctime>

#include "util/clock_arithmetic.h"
#include "util/win32.h"

namespace TamLogUtil {

static_assert(CLOCKS_PER_SEC == kTicksPerSecond);

std::int32_t ReadClock() {
  return clock();
}

void SleepFor(std::uint32_t milliseconds) {
  Sleep(milliseconds);
}

}  // namespace TamLogUtil
