#pragma once

// Holds messages back for a while and returns them in time order. A message that comes later than the hold
// time allows is returned at once and marked late.
//
// Belongs to one thread. Times of arrival are milliseconds of any clock that never goes back.

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
    bool late = false;  // dated before the message returned just before it
    std::uint32_t twin = 1;
  };

  void SetHold(std::uint64_t milliseconds) { hold = milliseconds; }

  // Adds a message that arrives at `now`, with its number among equal ones. Messages with equal times are
  // returned in the order in which they were added.
  void Add(const LogMessage& message, std::uint64_t now, std::uint32_t twin = 1);

  // Appends the messages that have been held long enough and all that are dated before them. TakeAll appends
  // the rest, too.
  void TakeDue(std::uint64_t now, std::vector<Ready>& ready);
  void TakeAll(std::vector<Ready>& ready);

  std::size_t Size() const { return held.size(); }

  // Returns the messages that are held back now, in time order.
  std::vector<Ready> All() const;

 private:
  struct Held {
    LogMessage message{};
    std::uint64_t due = 0;
    std::uint32_t twin = 1;
  };
  using ByTime = std::multimap<std::uint64_t, Held>;

  void Take(ByTime::iterator end, std::vector<Ready>& ready);

  std::uint64_t hold = 0;
  ByTime held;
  bool any = false;             // a message was returned
  std::uint64_t lastTaken = 0;  // its time key
};

}  // namespace TamLogClient
