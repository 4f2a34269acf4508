#pragma once

// A time-out that counts down while it is passed from wait to wait, so that a sequence of waits shares one
// deadline.

#include <cstdint>

#include "util/clock.h"

namespace TamLogUtil {

// Not thread-safe, except the two process-wide instances, which never change.
class Timeout {
 public:
  static constexpr std::uint32_t kForever = 0xFFFFFFFFU;

  // `milliseconds` from now; 0: do not wait, kForever: no limit.
  explicit Timeout(std::uint32_t milliseconds);

  // Milliseconds left; 0 after the deadline.
  std::uint32_t Remaining();
  bool Expired();

  // Usable before main and in exit hooks. Nearly every lock is taken with Infinite.
  static Timeout Infinite;
  static Timeout Immediate;

 private:
  struct Fixed {};
  constexpr Timeout(Fixed, std::uint32_t milliseconds) : clock(0), remainingMs(milliseconds) {}
  void Update();

  WaitClock clock;  // since the last update
  std::uint32_t remainingMs;
};

}  // namespace TamLogUtil
