#pragma once

// When to try again to reach a server that does not answer: the pause doubles from failure to failure. Used
// by one thread at a time.

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace TamLogClient {

class RetryPause {
 public:
  using Clock = std::chrono::steady_clock;

  // The pause after the first failure and the longest one, in milliseconds.
  RetryPause(std::uint32_t first, std::uint32_t most) : firstMs(first), mostMs(std::max(first, most)) {
    Reset();
  }

  // The next attempt may be made at once, and the next pause is the first one.
  void Reset() {
    pauseMs = firstMs;
    next = Clock::time_point{};
  }

  // An attempt failed just now.
  void Failed() {
    next = Clock::now() + std::chrono::milliseconds(pauseMs);
    pauseMs = std::min(pauseMs * 2, mostMs);
  }

  // The time from which the next attempt may be made.
  Clock::time_point Next() const { return next; }

 private:
  std::uint64_t firstMs;
  std::uint64_t mostMs;
  std::uint64_t pauseMs = 0;
  Clock::time_point next;
};

}  // namespace TamLogClient
