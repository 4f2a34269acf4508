#include <algorithm>
#include <limits>

#include "util/clock.h"
#include "util/clock_arithmetic.h"

namespace TamLogUtil {

// ReadClock counts milliseconds.
static_assert(kTicksPerSecond == kMillisecondsPerSecond);

std::int32_t WaitClock::Ticks() const {
  constexpr std::uint64_t kHighest = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::min(ReadClock() - start, kHighest));
}

}  // namespace TamLogUtil
