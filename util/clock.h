#pragma once

// The clock that time-outs and periods are measured by, and a thread's sleep.

#include <cstdint>

namespace TamLogUtil {

// The run-time's clock(): wall time since the start of the process, kTicksPerSecond a second
// (util/clock_arithmetic.h). Any thread.
std::int32_t ReadClock();

// Lets the calling thread sleep; 0 gives up the rest of its time slice, 0xFFFFFFFF sleeps for good.
void SleepFor(std::uint32_t milliseconds);

}  // namespace TamLogUtil
