#pragma once

// A bounded wait for a condition that another thread or process fulfils.
//
//   ASSERT_TRUE(WaitUntil([&] { return calls >= 3; }));

#include <chrono>
#include <thread>

namespace TestSupport {

inline constexpr std::chrono::milliseconds kWaitLimit{10000};

// Returns whether `condition` came true within `limit`. Evaluates it every millisecond or two, and once more
// at the end.
template <class Condition>
bool WaitUntil(Condition condition, std::chrono::milliseconds limit = kWaitLimit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < end) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return condition();
}

}  // namespace TestSupport
