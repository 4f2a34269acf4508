#pragma once

// Reads the log of a running server without taking access: copies it as it is, and finds out afterwards
// whether the server wrote meanwhile. docs/reader_protocol.md describes it.
//
//   ConsistentRead read(log);
//   std::optional<Status> status = read.Begin(timeoutMs);
//   if (status == Status::Ok) {
//     ... copy slots; believe nothing of them yet
//     status = read.End();
//   }
//   if (!status) ... the server wrote meanwhile: discard the copy, begin again
//
// It holds because the server closes the read-wait event before it touches a byte, and raises `changeCount`
// before it signals the event again. Nothing is written and nothing is held, so a reader that is killed or
// suspended here has no effect on the server.
//
// The processor must not move the loads of the copy out of the span between Begin and End. On x64 loads are
// not reordered with each other, and only the compiler has to respect them; the fences below are acquire
// fences, which on ARM64 become instructions (dmb ishld).
//
// A read belongs to one thread.

#include <cstdint>
#include <optional>

#include "client/live/log_memory.h"
#include "client/message/status.h"
#include "records/log_file_format.h"

namespace TamLogClient {

class ConsistentRead {
 public:
  // The longest time between Begin and End. A server that starts again may have emptied the log and counted
  // up to the same counters; it flushes its first messages 200 ms after its start, so a shorter read cannot
  // contain both lives.
  static constexpr std::uint32_t kLongestMs = 150;

  explicit ConsistentRead(const LogMemory& memory) : log(&memory) {}

  // Waits up to `timeoutMs` until the server is not writing, and copies the header. Nothing: the header was
  // just written, begin again. TimedOut; Stuck: the server waits for a reader that has taken access;
  // NotRunning: the server has closed the log, and the caller has to close it, too; InPage.
  std::optional<Status> Begin(std::uint32_t timeoutMs);

  // Returns the header as Begin copied it.
  const LogFileHeader& Header() const { return header; }

  // Returns whether the copy has taken too long or the server has closed the log; then End returns nothing. A
  // long copy asks this between two pieces. Makes no system call.
  bool IsInvalidated();

  // Returns Ok when everything copied since Begin is of one state of the log, the one of Header(). Nothing:
  // it is not, or it took too long; discard it. NotRunning and InPage as for Begin.
  std::optional<Status> End();

 private:
  Status WaitForWriter(std::uint32_t timeoutMs);

  const LogMemory* log;
  LogFileHeader header{};
  std::uint64_t begun = 0;  // of the memory's clock
  bool invalidated = false;
};

}  // namespace TamLogClient
