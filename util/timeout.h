#pragma once

// A time-out that counts down while it is handed from wait to wait, so that a sequence of waits shares one
// deadline.

#include <cstdint>

namespace TamLogUtil {

// Not thread-safe, except the two process-wide instances: they are never counted down, so nothing is ever
// written.
class Timeout {
 public:
  static constexpr std::uint32_t kForever = 0xFFFFFFFFU;

  // `milliseconds` from now; 0 means do not wait, kForever means without limit.
  explicit Timeout(std::uint32_t milliseconds);

  // Milliseconds that are left; 0 once the time is over.
  std::uint32_t Remaining();
  bool Expired();

  // Live from before main until after the exit hooks. Nearly every lock is taken with Infinite.
  static Timeout Infinite;
  static Timeout Immediate;

 private:
  struct Fixed {};
  constexpr Timeout(Fixed, std::uint32_t milliseconds) : startTicks(0), remainingMs(milliseconds) {}
  void Update();

  std::int32_t startTicks;
  std::uint32_t remainingMs;
};

}  // namespace TamLogUtil
