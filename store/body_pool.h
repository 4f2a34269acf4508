#pragma once

// A pool of messages in memory, each identified by a number. The number returned last is the next to be
// taken, so that a server with little traffic uses the same few pages. Plain data without a lock.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "records/log_file_format.h"

class BodyPool {
 public:
  // Returns the number of a message with undefined content.
  std::uint32_t Take() {
    if (free.empty()) Grow();
    const std::uint32_t number = free.back();
    free.pop_back();
    return number;
  }

  void Return(std::uint32_t number) noexcept { free.push_back(number); }

  LogMessage& operator[](std::uint32_t number) { return blocks[number / kBlock][number % kBlock]; }

  // To be called after `returned` messages were returned. When no message is taken any more, and the work is
  // in proportion to `returned`, frees the memory that a burst has left and sorts the numbers so that memory
  // is used in ascending order again.
  void Tidy(std::size_t returned);
  void Clear() {
    blocks.clear();
    free.clear();
  }

 private:
  static constexpr std::uint32_t kBlock = 64;
  // The blocks that Tidy keeps: about 12 MB, for 20,000 messages at once.
  static constexpr std::size_t kKeptBlocks = 320;

  void Grow();

  std::vector<std::unique_ptr<LogMessage[]>> blocks;
  std::vector<std::uint32_t> free;  // capacity for all numbers, so that Return cannot fail
};
