#pragma once

// Copies a log that is too large for one consistent read: part by part, each part consistent in itself, and
// at the end one look at the numbers of all slots, which finds the slots that were written since.
//
// A slot that shows the same number as its copy holds the same message, because the server gives each number
// once. Number 0 is the exception: it is the first number, and messages that a full rewrite of the ring
// stored have none and show it, too. They count as unchanged while the counters exclude another one in their
// place. Looks further apart than a server needs to start again begin the copy anew.
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

  // Copies the log within `timeoutMs`. Ok: `filled` is the log at one moment. Nothing: it changed too much,
  // begin with a new object. TimedOut, Stuck, NotRunning, InPage as for ConsistentRead::Begin.
  std::optional<Status> Run(std::uint32_t timeoutMs);

 private:
  // Does `work` in one consistent read, which it is given; repeats it until the read is consistent.
  template <typename Work>
  std::optional<Status> Step(std::uint64_t deadline, Work work);
  std::uint32_t Remaining(std::uint64_t deadline) const;
  bool Continues(const LogFileHeader& now) const;
  bool IsTooLate() const;
  // These return false for a page that cannot be read.
  bool CopyPart(const LogFileHeader& header, std::int64_t first, std::int64_t end);
  bool CopyChanged(ConsistentRead& read);
  bool CopyChangedRun(ConsistentRead& read, const SlotRun& run);
  bool CopyChangedPart(std::size_t first, std::size_t end);

  const LogMemory* log;
  LogSnapshot* snapshot;
  std::int64_t partSlots;
  std::vector<std::uint8_t> copied;      // for each slot, whether its copy counts
  std::vector<std::uint64_t> numbers;    // of one part
  LogFileHeader last{};                  // of the last consistent read
  std::optional<std::uint64_t> lastEnd;  // a time shortly before its end; nothing before the first
  bool zerosMayDiffer = false;           // slots without a number may have been written since
};

}  // namespace TamLogClient
