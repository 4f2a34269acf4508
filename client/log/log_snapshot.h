#pragma once

// A private copy of the log, header and slots taken at one moment, and the order of its messages. A snapshot
// belongs to one thread at a time.

#include <cstdint>
#include <vector>

#include "records/log_file_format.h"

namespace TamLogClient {

struct LogSnapshot {
  LogFileHeader header{};
  std::vector<LogMessage> slots;  // slot i of the log; may be fewer than header.maxMessages for a short file

  // Returns whether the header's numbers are valid together and fit `slots`.
  bool HeaderIsSound() const;

  // Returns whether every slot of the ring holds a message.
  bool Full() const { return header.messageCount >= header.maxMessages; }

  // Returns the slots of the messages in ring order, oldest slot first, whatever their times. The result is
  // bounded by `slots` even when the header is not sound, so every index is valid.
  std::vector<std::uint32_t> RingOrder() const;
};

// The messages in time order, and what was found while ordering them.
struct MessageOrder {
  std::vector<std::uint32_t> oldestFirst;  // slots
  bool reordered = false;                  // the ring order was not the order of time
  std::uint32_t damaged = 0;               // messages that break a rule of the format
};

// Returns the slots of the messages in the order in which they came, as far as the ring shows it: ring order,
// but with the rest of a full rewrite reversed. A burst of at least the capacity writes the newest message
// into slot 0, so that a stretch of the ring (at its oldest end) runs backwards.
std::vector<std::uint32_t> OrderOfArrival(const LogSnapshot& snapshot);

// Orders by time key; messages with equal keys keep the order in which they came.
MessageOrder OrderMessages(const LogSnapshot& snapshot);

}  // namespace TamLogClient
