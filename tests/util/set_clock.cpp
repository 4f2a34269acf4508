#include "tests/util/set_clock.h"

#include <atomic>

#include "util/clock.h"
#include "util/win32.h"

namespace {

std::atomic<std::uint64_t> now{0};

}  // namespace

namespace TestSupport {

void SetClock(std::uint64_t reading) {
  now = reading;
}

}  // namespace TestSupport

namespace TamLogUtil {

std::uint64_t ReadClock() {
  return now;
}

void SleepFor(std::uint32_t milliseconds) {
  now += milliseconds;
  SwitchToThread();
}

}  // namespace TamLogUtil
