#pragma once

// Derives from the counters of two headers what happened to the log between them.

#include <cstdint>
#include <optional>

#include "records/log_file_format.h"

namespace TamLogClient {

// Returns how many messages were appended between two headers of the same log. Returns nothing when more than
// appending happened, or when the headers are of different logs: the ring has another capacity, slots that
// held messages were written again, or a counter fell.
std::optional<std::uint64_t> AppendedSince(const LogFileHeader& before, const LogFileHeader& now);

// Returns whether the counters can be of one run of the log: they never fall in it. Those of a damaged header
// mean nothing.
bool CountersGoOn(const LogFileHeader& before, const LogFileHeader& now);

// Returns whether two copies of a header show the same state of the log: every counter but `readCount` is
// equal.
bool SameCounters(const LogFileHeader& before, const LogFileHeader& now);

}  // namespace TamLogClient
