#pragma once

// The rules of the ring of slots, one place for each: which headers are valid, which slots hold the messages,
// and the stretch that a full rewrite leaves in reverse. docs/log_file_format.md describes the ring.
//
// The functions have no state and may be called from any thread.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "records/log_file_format.h"

namespace TamLogClient {

// Slots that follow each other: from `begin` up to, and without, `end`.
struct SlotRun {
  std::int64_t begin = 0;
  std::int64_t end = 0;
};

// Returns whether count, capacity and next slot of the header are valid together. The file may still be too
// short for them.
bool RingIsSound(const LogFileHeader& header);

// Returns whether the header is sound and all of its slots are among the first `slotsThere`.
bool RingFits(const LogFileHeader& header, std::uint64_t slotsThere);

// Returns the slots of the newest `count` messages, oldest first; either run may be empty. The header has to
// be sound, and `count` at most its messageCount.
std::array<SlotRun, 2> NewestRuns(const LogFileHeader& header, std::int64_t count);

// Returns the slots that hold messages, oldest first, or, of a header that does not fit the first
// `slotsThere` slots, all slots of its capacity that are among them.
std::array<SlotRun, 2> OccupiedRuns(const LogFileHeader& header, std::uint64_t slotsThere);

// Returns the slots of all messages, oldest first, that are among the first `slotsThere`. The header has to
// be sound; its capacity may be larger than `slotsThere`, which bounds the work.
std::vector<std::uint32_t> RingSlots(const LogFileHeader& header, std::uint64_t slotsThere);

// Returns the slot at a position of the ring order, which begins with 0 for the oldest message. The header
// has to be sound, and `position` less than its messageCount.
std::uint32_t SlotAt(const LogFileHeader& header, std::uint32_t position);

// Returns whether `slot` holds one of the header's messages. Of a header that is not sound the answer means
// nothing.
bool HoldsMessage(const LogFileHeader& header, std::uint64_t slot);

// Returns how many of the first `keys` (time keys, oldest slot first) run backwards in time, as a full
// rewrite of the ring leaves them; 0 when they do not.
std::size_t FallingStretch(const std::vector<std::uint64_t>& keys);

// Time key and number of a message: by these the ring shows the order of arrival.
struct ArrivalStamp {
  std::uint64_t key = 0;
  std::uint64_t number = 0;
};
ArrivalStamp ArrivalOf(const LogMessage& message);

// Returns whether the message in one slot of the ring is shown to be older than that in the next slot: by its
// time or, of equal times, by its number.
bool IsShownOlder(const ArrivalStamp& message, const ArrivalStamp& next);

// Returns how many of the ring's oldest messages are the rest of a full rewrite, which stores the newest one
// first. `ring` has all messages, oldest slot first. Where the ring is not full, or not complete, only times
// count.
std::size_t BlockLength(const LogFileHeader& header, const std::vector<ArrivalStamp>& ring);

// Returns the same of a ring that was full, in which messages may be missing. The first `older` ones of
// `ring` are in slots from nextSlot on.
std::size_t BlockLength(std::size_t older, const std::vector<ArrivalStamp>& ring);

// Returns how many of the messages of all slots, in the order of the slots, were appended one after the other
// from slot 0 on, as far as times and numbers show it: nextSlot comes after these.
std::size_t NewerLength(const std::vector<ArrivalStamp>& slots);

}  // namespace TamLogClient
