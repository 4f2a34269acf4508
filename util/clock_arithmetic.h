#pragma once

// Arithmetic on the ticks of a wait (WaitClock, util/clock.h), separate from the clock itself so that its
// limits can be tested anywhere.
//
// A clock ticks 1000 times a second in 32 bits, so ticks and milliseconds are the same number. The conversion
// is nevertheless written out and wraps in 32 bits: long periods and time-outs have always behaved like this,
// and settings in the field depend on it.

#include <cstdint>

namespace TamLogUtil {

inline constexpr std::uint32_t kTicksPerSecond = 1000;
inline constexpr std::uint32_t kMillisecondsPerSecond = 1000;

// Milliseconds between two readings, rounded toward zero. Differences above 2,147,483 ms wrap in the product
// and can be negative.
constexpr std::int32_t ElapsedMilliseconds(std::int32_t startTicks, std::int32_t nowTicks) {
  const std::uint32_t difference =
      static_cast<std::uint32_t>(nowTicks) - static_cast<std::uint32_t>(startTicks);
  const std::uint32_t product = difference * kMillisecondsPerSecond;
  return static_cast<std::int32_t>(product) / static_cast<std::int32_t>(kTicksPerSecond);
}

// Returns the rest of `remainingMs` after `elapsedMs`. Compared without sign: a negative elapsed time ends
// the time-out.
constexpr std::uint32_t CountDown(std::uint32_t remainingMs, std::int32_t elapsedMs) {
  const auto elapsed = static_cast<std::uint32_t>(elapsedMs);
  return remainingMs <= elapsed ? 0 : remainingMs - elapsed;
}

// Returns the reading at which a period that began at `startTicks` is over. The product wraps for periods
// above 4,294,967 ms.
constexpr std::uint32_t PeriodDeadline(std::int32_t startTicks, std::uint32_t periodMs) {
  return static_cast<std::uint32_t>(startTicks) + periodMs * kTicksPerSecond / kMillisecondsPerSecond;
}

// Returns whether the deadline is yet to come. Compared with sign: a deadline from 2^31 ticks on counts as
// past.
constexpr bool IsBeforeDeadline(std::int32_t nowTicks, std::uint32_t deadline) {
  return nowTicks < static_cast<std::int32_t>(deadline);
}

}  // namespace TamLogUtil
