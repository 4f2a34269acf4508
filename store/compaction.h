#pragma once

// Brings the messages of a ring to the front of the file when its capacity changes, in place: the memory
// taken is that of two messages, whatever the size of the log.

#include <cstdint>

#include "records/log_file_format.h"
#include "store/ring.h"

// Stores the newest `kept` messages of the ring that `header` describes in slots 0, 1, 2, ..., the newest
// first. Slots from `kept` on keep their bytes. `slots` has
//   LogMessage ReadSlot(std::int64_t index)
//   void WriteSlot(std::int64_t index, const LogMessage& message)
// What these throw ends the work half done.
//
// The place of a message and its slot are mirror images of each other in the ring, so two messages that are
// both kept change places, and a message from a slot beyond overwrites one that is dropped. Each step loses
// at most the message that it is about to write.
template <class Slots>
void MoveNewestToFront(const LogFileHeader& header, std::int64_t kept, Slots& slots) {
  for (std::int64_t place = 0; place < kept; ++place) {
    const std::int64_t slot = SlotFromNewest(header, static_cast<std::int32_t>(place));
    if (slot <= place) continue;  // stored at its own place, or changed places with an earlier one
    const LogMessage message = slots.ReadSlot(slot);
    const LogMessage other = slots.ReadSlot(place);
    slots.WriteSlot(place, message);
    if (slot < kept) slots.WriteSlot(slot, other);
  }
}
