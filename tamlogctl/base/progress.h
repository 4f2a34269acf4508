#pragma once

// Progress of work that takes longer than a second, in one line on stderr. Shown on a terminal only.

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace TamLogCtl {

// Shows how much of the work is done. Use it from one thread.
class Progress {
 public:
  // `purpose` begins the line. With a `total` of 0 the amount of work is unknown.
  explicit Progress(const std::string& purpose, std::uint64_t total = 0);
  ~Progress();  // removes the line
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Updates the line at most four times a second, so that it may be called at every step.
  void Show(std::uint64_t done);
  void Show(const std::string& state);

 private:
  bool IsDue();
  void Write(const std::string& state);

  std::string what;
  std::uint64_t all;
  std::uint64_t next;
  bool terminal;
  bool shown = false;
};

// Shows the elapsed time of work that cannot report progress, from a thread of its own, for as long as it
// exists.
class Busy {
 public:
  explicit Busy(std::string purpose);
  ~Busy();
  Busy(const Busy&) = delete;
  Busy& operator=(const Busy&) = delete;

 private:
  void Run(const std::string& purpose);

  std::mutex lock;
  std::condition_variable ends;
  bool done = false;
  std::thread thread;
};

}  // namespace TamLogCtl
