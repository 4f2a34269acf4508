#pragma once

// The arithmetic of the ring of slots: the changes that the server's operations make to a copy of the file's
// header.
//
// Any process that maps the file may write its header, so the numbers may have any value. No function
// overflows, divides by zero or takes long; MappedView checks whether a slot is in the file.

#include <cstdint>

#include "records/log_file_format.h"

// Returns the slot of the message that `newerMessages` messages are newer than. Adds maxMessages once to a
// negative index, which is enough for a sound header.
std::int64_t SlotFromNewest(const LogFileHeader& header, std::int32_t newerMessages);

// Returns whether the indexes of `header` are inside its ring and its messages in a file of `slotCount`
// slots. An empty ring may have any capacity, and one whose file has yet to grow a larger one than the file.
bool RingIsInside(const LogFileHeader& header, std::int64_t slotCount);

// Empties the ring and resets its counters. Keeps readCount, serverRunning and the capacity.
void ReformatRing(LogFileHeader& header);

// Empties the ring. nextSequence continues, so that a number never names two messages.
void ClearRing(LogFileHeader& header);

// Sets the capacity of a file whose messages were compacted to at most `maxMessages` slots from slot 0 on.
void SetRingCapacity(LogFileHeader& header, std::uint32_t maxMessages);

// Records that every slot of the file is written again from slot 0 on.
void RestartRing(LogFileHeader& header);

// Removes the newest `messages` messages, so that they can be written again.
void RewindRing(LogFileHeader& header, std::int32_t messages);

// Counts one more message and returns the slot for it. header.maxMessages must be positive.
std::int32_t AppendToRing(LogFileHeader& header);
