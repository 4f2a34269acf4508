#include "util/timeout.h"

#include <type_traits>

#include "util/clock_arithmetic.h"

namespace TamLogUtil {

// Initialized at compile time and never destroyed: locks are taken before main and in exit hooks.
static_assert(std::is_trivially_destructible_v<Timeout>);
constinit Timeout Timeout::Infinite(Fixed{}, kForever);
constinit Timeout Timeout::Immediate(Fixed{}, 0);

Timeout::Timeout(std::uint32_t milliseconds) : remainingMs(milliseconds) {}

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
  const std::int32_t elapsed = ElapsedMilliseconds(0, clock.Ticks());
  // Read again instead of reusing the value: the time between the two readings does not count.
  clock = WaitClock();
  remainingMs = CountDown(remainingMs, elapsed);
}

}  // namespace TamLogUtil
