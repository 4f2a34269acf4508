#pragma once

// The clock that measures time-outs and periods, and a thread's sleep.

#include <cstdint>

namespace TamLogUtil {

// Returns milliseconds since the start of the machine. Setting the time of day does not change it; the time
// that the machine sleeps counts. Any thread.
std::uint64_t ReadClock();

// Lets the calling thread sleep. 0 yields the rest of its time slice, 0xFFFFFFFF sleeps forever.
void SleepFor(std::uint32_t milliseconds);

// Counts the time of one wait, in the 32 bits of util/clock_arithmetic.h. Every wait counts from 0, because a
// count that runs on would wrap after 24.8 days: a deadline beyond the wrap would be past at once, and a
// timer would call without a pause. One thread at a time.
class WaitClock {
 public:
  // Starts at 0 now.
  WaitClock() : start(ReadClock()) {}
  // Starts at 0 at a reading of the clock.
  constexpr explicit WaitClock(std::uint64_t reading) : start(reading) {}

  // Returns the ticks since the start, kTicksPerSecond a second; never less than before. Stays at the highest
  // number after 24.8 days, as when the machine slept.
  std::int32_t Ticks() const;

 private:
  std::uint64_t start;
};

}  // namespace TamLogUtil
