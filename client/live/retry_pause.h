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

  // Takes the pause after the first failure and the longest pause, in milliseconds.
  RetryPause(std::uint32_t first, std::uint32_t most) : firstMs(first), mostMs(std::max(first, most)) {
    Reset();
  }

  // Allows the next attempt at once; the next pause is the first one.
  void Reset() {
    pauseMs = firstMs;
    next = Clock::time_point{};
  }

  // Records that an attempt failed just now.
  void Failed() {
    next = Clock::now() + std::chrono::milliseconds(pauseMs);
    pauseMs = std::min(pauseMs * 2, mostMs);
  }

  // Returns the time from which the next attempt may be made.
  Clock::time_point Next() const { return next; }

 private:
  std::uint64_t firstMs;
  std::uint64_t mostMs;
  std::uint64_t pauseMs = 0;
  Clock::time_point next;
};

}  // namespace TamLogClient
