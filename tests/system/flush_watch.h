#pragma once

// Watches from outside how the server writes its log: how long its writes take, how far apart they are, and
// whether a reader is ever counted inside. Reads the shared header and tests the read-wait event every
// millisecond; changes nothing.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

class FlushWatch {
 public:
  using Milliseconds = std::chrono::milliseconds;

  struct Figures {
    std::uint64_t flushes = 0;     // changes of changeCount
    Milliseconds longestWrite{0};  // at most: between two samples that found the read-wait event signalled
    Milliseconds longestPause{0};  // between two samples at which changeCount had changed, or to the end
    std::uint64_t counted = 0;     // samples with a readCount other than 0
    std::uint64_t samples = 0;
  };

  // Begins to watch. Throws std::runtime_error when no server shares a log.
  FlushWatch();
  ~FlushWatch() { Stop(); }
  FlushWatch(const FlushWatch&) = delete;
  FlushWatch& operator=(const FlushWatch&) = delete;

  Figures Stop();

 private:
  void Run(const void* view, void* readWait);

  Figures figures;
  std::atomic<bool> stopping{false};
  std::thread thread;
};
