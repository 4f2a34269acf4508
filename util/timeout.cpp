#include "util/timeout.h"

#include <ctime>
#include <type_traits>

#include "util/clock_arithmetic.h"

namespace TamLogUtil {

static_assert(CLOCKS_PER_SEC == kTicksPerSecond);

// Constants from the linker's image and never destroyed: locks are taken before main and in exit hooks.
static_assert(std::is_trivially_destructible_v<Timeout>);
constinit Timeout Timeout::Infinite(Fixed{}, kForever);
constinit Timeout Timeout::Immediate(Fixed{}, 0);

Timeout::Timeout(std::uint32_t milliseconds) : startTicks(clock()), remainingMs(milliseconds) {}

std::uint32_t Timeout::Remaining() {
  Update();
  return remainingMs;
}

bool Timeout::Expired() {
  Update();
  return remainingMs == 0;
}

void Timeout::Update() {
  if (remainingMs == 0 || remainingMs == kForever) return;
  const std::int32_t elapsed = ElapsedMilliseconds(startTicks, clock());
  // Read again rather than reused: the moment in between is given away.
  startTicks = clock();
  remainingMs = CountDown(remainingMs, elapsed);
}

}  // namespace TamLogUtil
