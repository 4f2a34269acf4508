#pragma once

// Copies a log that is too large for one consistent read: part by part, each part consistent in itself, then
// one read that looks at the numbers of all slots and copies the slots that were written since. When that is
// too much for one read, the parts are brought up to date one by one first.
//
// A slot that shows the same number as its copy holds the same message, because the server gives each number
// once. Number 0 is the exception: it is the first number, and messages that a full rewrite of the ring
// stored have none and show it, too. They count as unchanged while the counters exclude another one in their
// place. A copy starts over when a restart may have emptied the log between two reads.
//
// A copy belongs to one thread.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "client/live/consistent_read.h"
#include "client/live/log_memory.h"
#include "client/log/log_snapshot.h"
#include "client/log/ring.h"
#include "client/message/status.h"

namespace TamLogClient {

class PartwiseCopy {
 public:
  static constexpr std::size_t kPartSlots = 4096;  // 2.3 MB, a millisecond

  // Fills `filled`, whose slots have to be as many as the log's capacity.
  PartwiseCopy(const LogMemory& memory, LogSnapshot& filled, std::size_t slotsOfPart = kPartSlots);

  // Copies the log within `timeoutMs`. Ok: `filled` is the log at one moment. Nothing: the log may have been
  // replaced meanwhile; start over with a new object. Unsteady: it changes faster than it can be copied.
  // TimedOut, Stuck, NotRunning, InPage as for ConsistentRead::Begin.
  std::optional<Status> Run(std::uint32_t timeoutMs);

 private:
  // Does `work` in one consistent read. Nothing: the server wrote meanwhile, or `otherLog` is set.
  template <typename Work>
  std::optional<Status> Read(std::uint64_t deadline, Work work);
  // Brings the copy of a part up to date. Nothing: `otherLog` is set.
  std::optional<Status> UpdatePart(std::size_t part, std::uint64_t deadline);
  // Completes the copy. Nothing: the log changed too much, or `otherLog` is set.
  std::optional<Status> Complete(std::uint64_t deadline);
  std::uint32_t Remaining(std::uint64_t deadline) const;
  bool IsSameLog(const LogFileHeader& now) const;
  std::vector<SlotRun> RunsOf(std::size_t part, const LogFileHeader& header) const;
  // Both return false for a page that cannot be read. CopyChanged copies only the slots that have changed.
  bool CopyChanged(const SlotRun& run, bool zerosMayDiffer);
  bool CopyAgain(const SlotRun& run);
  void Mark(const SlotRun& run, bool counts);

  const LogMemory* log;
  LogSnapshot* snapshot;
  std::int64_t partSlots;
  std::vector<std::uint8_t> copied;      // for each slot, whether its copy counts
  std::vector<std::uint64_t> numbers;    // of one part
  std::vector<std::uint32_t> zerosOf;    // for each part, `zeros` when it was copied
  std::uint32_t zeros = 0;               // raised when slots without a number may have been written
  LogFileHeader last{};                  // of the last consistent read
  std::optional<std::uint64_t> lastEnd;  // a time shortly before its end; nothing before the first
  bool otherLog = false;                 // the log may be another one than at the beginning
};

}  // namespace TamLogClient
