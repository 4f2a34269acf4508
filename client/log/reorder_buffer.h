#pragma once

// Holds messages back for a while and gives them out in time order. One that comes later than the hold time
// allows for is given at once and marked late.
//
// Belongs to one thread. Times of arrival are milliseconds of any clock that does not go back.

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "records/log_file_format.h"

namespace TamLogClient {

class ReorderBuffer {
 public:
  struct Ready {
    LogMessage message{};
    bool late = false;  // an earlier given message has a later time
  };

  void SetHold(std::uint64_t milliseconds) { hold = milliseconds; }

  // Messages of equal times are given in the order in which they were added.
  void Add(const LogMessage& message, std::uint64_t now);

  // Appends what has been held long enough, and all that is dated before it.
  void TakeDue(std::uint64_t now, std::vector<Ready>& ready);
  void TakeAll(std::vector<Ready>& ready);

  std::size_t Size() const { return held.size(); }

 private:
  struct Held {
    LogMessage message{};
    std::uint64_t due = 0;
  };
  using ByTime = std::multimap<std::uint64_t, Held>;

  void Give(ByTime::iterator end, std::vector<Ready>& ready);

  std::uint64_t hold = 0;
  ByTime held;
  bool any = false;             // a message was given
  std::uint64_t lastGiven = 0;  // its time key
};

}  // namespace TamLogClient
