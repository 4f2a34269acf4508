#pragma once

// The memory that the server shares, as a reader reaches it: what can be copied from it, and the two things
// that show whether a copy is torn, the read-wait event and a clock. MappedLog is the real one.
//
// Nothing here changes anything that the server sees. A memory belongs to one thread at a time.

#include <cstddef>
#include <cstdint>

#include "records/log_file_format.h"

namespace TamLogClient {

class LogMemory {
 public:
  virtual ~LogMemory() = default;

  // The copying functions return false when a page cannot be read; then a part may have been copied. What
  // they copy may be torn.

  virtual bool CopyHeader(LogFileHeader& header) const = 0;

  // Copies `changeCount` in one access of the processor.
  virtual bool CopyChangeCount(std::uint64_t& count) const = 0;

  // Copies `count` slots, from slot `first` on; all of them have to be below SlotCount().
  virtual bool CopySlots(std::size_t first, std::size_t count, LogMessage* to) const = 0;

  // Copies the first `bytes` bytes of a slot below SlotCount().
  virtual bool CopySlotStart(std::size_t slot, std::size_t bytes, LogMessage* to) const = 0;

  // Copies the numbers (`sequence`) of `count` slots, from slot `first` on, in one access each.
  virtual bool CopyNumbers(std::size_t first, std::size_t count, std::uint64_t* to) const = 0;

  // Returns the number of slots that are in the mapping as a whole.
  virtual std::size_t SlotCount() const = 0;

  // Waits until the server is not writing, `timeoutMs` at most. Returns false when it still is: it writes, or
  // waits for a reader that has taken access.
  virtual bool WaitForWriter(std::uint32_t timeoutMs) const = 0;

  // Returns milliseconds of a clock that nobody sets.
  virtual std::uint64_t Now() const = 0;

 protected:
  LogMemory() = default;
  LogMemory(const LogMemory&) = default;
  LogMemory& operator=(const LogMemory&) = default;
};

}  // namespace TamLogClient
