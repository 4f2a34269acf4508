#pragma once

// One line on stderr that says how far a long piece of work is. Only on a terminal, and only after a second.

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace TamLogCtl {

class Progress {
 public:
  // `total` 0: the end is not known.
  explicit Progress(std::string purpose, std::uint64_t total = 0);
  ~Progress();  // takes the line away
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(std::uint64_t done);
  // The same with words for the state.
  void Show(const std::string& state);

 private:
  bool IsDue();

  std::string what;
  std::uint64_t all;
  std::uint64_t next;
  bool terminal;
  bool shown = false;
};

// Shows while it lives that work without steps is going on, and for how long. A thread does: the work has no
// time.
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
