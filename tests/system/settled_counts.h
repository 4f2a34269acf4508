#pragma once

// Counts the handles and threads of a process once it has come to rest.

#include <chrono>
#include <cstddef>
#include <string>
#include <utility>

#include "tests/system/platform.h"

struct ProcessCounts {
  std::size_t handles = 0;
  std::size_t threads = 0;

  bool operator==(const ProcessCounts&) const = default;
  std::string Text() const {
    return std::to_string(handles) + " handles and " + std::to_string(threads) + " threads";
  }
};

// Returns the counts once they have stayed the same for half a second; the last counts if that does not
// happen within `limit`.
inline ProcessCounts SettledCounts(const ProcessById& process, std::chrono::milliseconds limit) {
  using Clock = std::chrono::steady_clock;
  ProcessCounts last;
  auto since = Clock::now();
  Eventually(limit, [&] {
    const ProcessCounts now = {.handles = process.HandleCount(), .threads = process.ThreadCount()};
    if (now != std::exchange(last, now)) since = Clock::now();
    return Clock::now() - since > std::chrono::milliseconds(500);
  });
  return last;
}

// Waits until the process has come back to `before`, except for handles that the system itself keeps; returns
// the final counts.
inline ProcessCounts CountsBackTo(const ProcessById& process, const ProcessCounts& before,
                                  std::size_t handleMargin, std::chrono::milliseconds limit) {
  ProcessCounts now;
  Eventually(limit, [&] {
    now = {.handles = process.HandleCount(), .threads = process.ThreadCount()};
    return now.handles <= before.handles + handleMargin && now.threads <= before.threads;
  });
  return now;
}
