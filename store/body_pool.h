#pragma once

// Messages in memory, each with a number by which it is found again. A number that was given back is the next
// to be taken, so that in a quiet hour the same few pages are in use. Plain data without a lock.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "records/log_file_format.h"

class BodyPool {
 public:
  // The number of a message whose content is anything.
  std::uint32_t Take() {
    if (free.empty()) Grow();
    const std::uint32_t number = free.back();
    free.pop_back();
    return number;
  }

  void GiveBack(std::uint32_t number) noexcept { free.push_back(number); }

  LogMessage& operator[](std::uint32_t number) { return blocks[number / kBlock][number % kBlock]; }

  // After `returned` messages were given back: if none is taken any more, lets go of memory that a burst has
  // left behind, and puts the numbers in order again so that memory is walked upwards, when the work is in
  // proportion to what was returned.
  void Tidy(std::size_t returned);
  void Clear() {
    blocks.clear();
    free.clear();
  }

 private:
  static constexpr std::uint32_t kBlock = 64;
  // What Tidy keeps: about 12 MB, for 20,000 messages at once.
  static constexpr std::size_t kKeptBlocks = 320;

  void Grow();

  std::vector<std::unique_ptr<LogMessage[]>> blocks;
  std::vector<std::uint32_t> free;  // room for all numbers, so that giving back cannot fail
};
