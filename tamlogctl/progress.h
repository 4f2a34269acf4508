#pragma once

// One line on stderr that says how far a long piece of work is. Only on a terminal, and only after a second.

#include <cstddef>
#include <cstdint>
#include <string>

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

}  // namespace TamLogCtl
