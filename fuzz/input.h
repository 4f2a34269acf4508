#pragma once

// The bytes of one fuzz input, taken from the front piece by piece. Zeros follow after the end.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace Fuzz {

// Requires a condition that holds for every input. Ends the process when it does not hold, which the fuzzer
// reports.
inline void Require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (holds) return;
  std::fprintf(stderr, "%s:%d: does not hold\n", file, line);
  std::abort();
}

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : next(data), left(size) {}

  bool Empty() const { return left == 0; }
  std::size_t Left() const { return left; }

  // Returns a number, or any record of plain bytes.
  template <class Record>
  Record Take() {
    Record record{};
    TakeInto(&record, sizeof record);
    return record;
  }
  // Takes at most `size` bytes, fewer where the input ends. Returns their number.
  std::size_t TakeInto(void* target, std::size_t size) {
    const std::size_t taken = std::min(size, left);
    if (taken != 0) std::memcpy(target, next, taken);
    next += taken;
    left -= taken;
    return taken;
  }
  std::string TakeText(std::size_t size) {
    std::string text(std::min(size, left), '\0');
    TakeInto(text.data(), text.size());
    return text;
  }
  std::string TakeRest() { return TakeText(left); }

 private:
  const std::uint8_t* next;
  std::size_t left;
};

}  // namespace Fuzz
