#pragma once

// Waiting that Ctrl-C ends, and polling with a deadline.

#include <cstdint>
#include <functional>

namespace TamLogCtl {

// Returns the milliseconds since some moment in the past; never goes back.
std::uint64_t Ticks();

// Sleeps. Returns false when interrupted, which ends the sleep within 50 ms.
bool SleepFor(std::uint32_t milliseconds);

// Calls `reached` every `everyMs` until it returns true (kDone), until `patienceMs` have passed (kTimedOut),
// or until Ctrl-C (kInterrupted). Calls it at least once, and does not interrupt it.
int WaitUntil(std::uint64_t patienceMs, std::uint32_t everyMs, const std::function<bool()>& reached);

}  // namespace TamLogCtl
