#pragma once

// The arithmetic of the ring of slots: what each operation of the server makes of a copy of the file's
// header.
//
// Any process that maps the file may write its header, so every number here may be anything. Nothing
// overflows, divides by zero or loops for long; whether a slot lies in the file at all is checked where it is
// touched.

#include <cstdint>

#include "records/log_file_format.h"

// The slot of the message that has `newerMessages` messages before it, counted from the newest. One turn
// round the ring is added to a negative index; with sound numbers that is enough.
std::int64_t SlotFromNewest(const LogFileHeader& header, std::int32_t newerMessages);

// An empty ring with fresh counters. Who reads, whether a server runs and the capacity are left alone.
void ReformatRing(LogFileHeader& header);

// An empty ring whose counters go on: `nextSequence` never names two messages.
void ClearRing(LogFileHeader& header);

// The header of a file whose messages were compacted to `maxMessages` slots from slot 0 on.
void SetRingCapacity(LogFileHeader& header, std::uint32_t maxMessages);

// The header of a file of which every slot is written again from slot 0 on.
void RestartRing(LogFileHeader& header);

// Takes back the newest `messages` messages, so that they can be written once more.
void RewindRing(LogFileHeader& header, std::int32_t messages);

// Makes room for one message and moves on; returns the slot it belongs in. `maxMessages` has to be positive.
std::int32_t AppendToRing(LogFileHeader& header);
