#pragma once

// The clock that measures time-outs and periods, and a thread's sleep.

#include <cstdint>

namespace TamLogUtil {

// Returns the run-time's clock(): wall time since the start of the process, kTicksPerSecond a second
// (util/clock_arithmetic.h). Any thread.
std::int32_t ReadClock();

// Lets the calling thread sleep. 0 yields the rest of its time slice, 0xFFFFFFFF sleeps forever.
void SleepFor(std::uint32_t milliseconds);

}  // namespace TamLogUtil
