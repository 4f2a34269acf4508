#pragma once

// The newest part of the log, for those who want a few messages and not a copy of all. The ring's order is
// not trusted: some messages of the part that was left out are looked at, too, and when times do not rise the
// answer is to read everything.
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
  std::vector<std::uint64_t> probes;  // time keys of some of those left out, in ring order
  bool whole = false;                 // nothing was left out
  LogMessage first{};                 // of those left out, the first in ring order
};

// Which of `leftOut` messages at the oldest end of a ring are to be looked at: positions in ring order,
// rising. A stretch of the ring that runs backwards lies at its oldest end, so the first two are among them.
std::vector<std::uint32_t> ProbePositions(std::uint32_t leftOut);

// The first of `messages` that nothing left out is newer than: this and the following are the newest
// messages of the log. Nothing when times are not in order: then the whole log has to be read.
std::optional<std::size_t> CertainFrom(const LogTail& tail);

// The first and the last message of the whole log in time order; nothing when the log is empty or the tail
// does not tell: then the whole log has to be read.
struct LogEnds {
  const LogMessage* oldest = nullptr;  // both are in the tail
  const LogMessage* newest = nullptr;
};
std::optional<LogEnds> EndsOf(const LogTail& tail);

// The messages from `first` on as a snapshot of a small log, in the place of the whole.
LogSnapshot SnapshotOf(const LogTail& tail, std::size_t first);

}  // namespace TamLogClient
