#pragma once

// The newest part of the log, for callers that need a few messages and not a copy of all. The ring's order is
// not trusted: some messages of the rest (probes) are read, too, and when times do not rise the caller has to
// read the whole log.
//
// A tail belongs to one thread at a time.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "client/log/log_snapshot.h"
#include "records/log_file_format.h"

namespace TamLogClient {

struct LogTail {
  LogFileHeader header{};
  std::vector<LogMessage> messages;   // the newest of the ring, in ring order, newest last
  std::vector<std::uint64_t> probes;  // time keys of some messages left out, in ring order
  bool whole = false;                 // nothing was left out
  LogMessage first{};                 // of the messages left out, the first in ring order
};

// Returns which of `leftOut` messages at the oldest end of a ring are to be probed: rising positions in ring
// order. A stretch that runs backwards is at the oldest end, so the first two are among them.
std::vector<std::uint32_t> ProbePositions(std::uint32_t leftOut);

// Returns the index of the first of `messages` that is at least as new as everything left out: it and the
// following are the newest messages of the log. Nothing when times are not in order, or equal times without
// numbers that rise: then the whole log has to be read.
std::optional<std::size_t> CertainFrom(const LogTail& tail);

// The first and the last message of the whole log in time order. EndsOf returns nothing when the log is empty
// or the tail does not show them: then the whole log has to be read.
struct LogEnds {
  const LogMessage* oldest = nullptr;  // both are in the tail
  const LogMessage* newest = nullptr;
};
std::optional<LogEnds> EndsOf(const LogTail& tail);

// Returns the messages from `first` on as the snapshot of a small log.
LogSnapshot SnapshotOf(const LogTail& tail, std::size_t first);

}  // namespace TamLogClient
