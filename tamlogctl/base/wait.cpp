#include "tamlogctl/base/wait.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"

namespace TamLogCtl {

std::uint64_t Ticks() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

bool SleepFor(std::uint32_t milliseconds) {
  constexpr std::uint64_t kStep = 50;
  const std::uint64_t end = Ticks() + milliseconds;
  for (std::uint64_t now = Ticks(); !Interrupted() && now < end; now = Ticks()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(std::min(kStep, end - now)));
  }
  return !Interrupted();
}

int WaitUntil(std::uint64_t patienceMs, std::uint32_t everyMs, const std::function<bool()>& reached) {
  const std::uint64_t end = Ticks() + patienceMs;
  for (;;) {
    if (reached()) return kDone;
    if (Interrupted()) return kInterrupted;
    if (Ticks() >= end) return kTimedOut;
    SleepFor(everyMs);
  }
}

}  // namespace TamLogCtl
