#pragma once

// A private copy of the log: its header and its slots, taken in one go, and the order of its messages.
// A snapshot belongs to one thread at a time.

#include <cstdint>
#include <vector>

#include "records/log_file_format.h"

namespace TamLogClient {

struct LogSnapshot {
  LogFileHeader header{};
  std::vector<LogMessage> slots;  // slot i of the log; may be fewer than header.maxMessages for a short file

  // The header's own claims make sense together and fit `slots`.
  bool HeaderIsSound() const;

  // The ring holds as many messages as it can.
  bool Full() const { return header.messageCount >= header.maxMessages; }

  // Slots of the messages in ring order, oldest slot first, without a look at their times. A header that is
  // not sound is bounded by the slots that are there, so every index is valid.
  std::vector<std::uint32_t> RingOrder() const;
};

// The messages in time order, and what was noticed on the way.
struct MessageOrder {
  std::vector<std::uint32_t> oldestFirst;  // slots
  bool reordered = false;                  // the ring order was not the order of time
  std::uint32_t damaged = 0;               // messages that break a rule of the format
};

// Orders by time key; messages with equal keys keep the order in which they came. The ring order cannot be
// trusted: a burst of at least the capacity lays the newest message in slot 0, so that a stretch of the ring
// (at its oldest end) runs backwards.
MessageOrder OrderMessages(const LogSnapshot& snapshot);

}  // namespace TamLogClient
