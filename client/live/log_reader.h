#pragma once

// Reads the log of a running server from shared memory, as docs/reader_protocol.md describes it.
//
//   LogReader reader;
//   LogSnapshot snapshot;
//   Status status = reader.Open();
//   if (status == Status::Ok) status = reader.Snapshot(snapshot);
//
// The normal read is Snapshot: it copies the header and the slots while the server goes on, and copies again
// when the server wrote meanwhile. Nothing is written and no lock is taken, so a reader that is killed or
// suspended at any moment has no effect on the server. A log that changes faster than it can be copied at
// once is copied part by part (client/live/partwise_copy.h).
//
// A server that stops waits for the processes that have its file open, readers included: call Look or
// ReleaseIfStopped at least every 250 ms, or close.
//
// A reader belongs to one thread at a time; ReleaseIfStopped may be called from any other meanwhile.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "client/live/consistent_read.h"
#include "client/live/mapped_log.h"
#include "client/log/log_snapshot.h"
#include "client/log/log_tail.h"
#include "client/message/status.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// The log in place, while the server goes on (LogReader::WithView).
class LogView {
 public:
  LogView(const LogFileHeader& copied, const LogMessage* first, std::uint64_t deadlineMicroseconds)
      : header(&copied), slots(first), deadline(deadlineMicroseconds) {}

  // Returns a copy of the header, whose numbers are valid together.
  const LogFileHeader& Header() const { return *header; }

  // Returns a slot; `slot` has to be below Header().maxMessages. The bytes may break any rule of the format,
  // and the server may change them at any time. Copy what is needed, once, and check the copy.
  const LogMessage& Slot(std::uint32_t slot) const { return slots[slot]; }

  // Returns whether the budget's time is over; then the function has to return.
  bool BudgetIsSpent() const;

 private:
  const LogFileHeader* header;
  const LogMessage* slots;
  std::uint64_t deadline;
};

class LogReader {
 public:
  static constexpr std::uint32_t kDefaultTimeoutMs = 5000;

  LogReader() = default;
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  // Opens the log by the name of its mapping. The statuses are those of MappedLog::Open.
  Status Open(const std::string& mapName = kFileMapName, EventNames accepted = EventNames::OfTheServer);

  // Closes everything that Open opened. Does nothing when nothing is open.
  void Close();
  bool IsOpen() const { return log.IsOpen(); }

  // Copies the header: a hint that shows whether something changed. Makes no system call. Closes the log and
  // returns NotRunning once `serverRunning` is 0.
  Status Look(LogFileHeader& header);

  // Releases the log when the server has closed it, whatever the reader's thread is doing: a copy that it
  // makes fails, and its call returns NotRunning. Not while WithView calls a function. From any thread.
  void ReleaseIfStopped() { log.ReleaseIfStopped(); }

  // Copies the whole log within `timeoutMs`. When `snapshot` is the one that the previous call filled and
  // messages were only appended since, copies only their slots. Damaged: the header is not valid; the slots
  // were still copied, if the mapping holds that many. TimedOut: the server is writing. Unsteady: the log
  // changes faster than it can be copied. Stuck: the server waits for a reader of another program that has
  // taken access, and does not leave. InPage: the system could not read a page. NotRunning: as for Look.
  Status Snapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs = kDefaultTimeoutMs);

  // Copies the newest `count` messages within `timeoutMs`, and the few others that show whether these are
  // also the newest in time (CertainFrom). The statuses are those of Snapshot; Damaged copies nothing.
  Status Newest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs = kDefaultTimeoutMs);

  // Calls `look` with the log in place, without copying, while the server goes on. What `look` saw counts
  // only when Ok is returned: otherwise the server may have written while it looked. It is called again with
  // a new view until a call was not disturbed, or `timeoutMs` are over; so each call begins from nothing, and
  // keeps its result apart from what it is for until Ok.
  //
  // A call that takes longer than `budgetMicroseconds` (at most 150 ms) does not count, and ends the calls
  // with TimedOut: the view says when the budget is spent, then `look` has to return. A page that cannot be
  // read raises a structured exception here. An exception of `look` is rethrown.
  Status WithView(std::uint32_t budgetMicroseconds, const std::function<void(const LogView&)>& look,
                  std::uint32_t timeoutMs = kDefaultTimeoutMs);

  // Returns how long the last copy took, in microseconds, failed attempts included.
  std::uint64_t LastCopyMicroseconds() const { return lastCopy; }

 private:
  // These are attempts: nothing means that the copy cannot be trusted, and another attempt may succeed.
  std::optional<Status> TrySnapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs, int failed);
  std::optional<Status> CopyAtOnce(LogSnapshot& snapshot, const LogFileHeader* known,
                                   std::uint32_t timeoutMs);
  std::optional<Status> TryNewest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs);
  std::optional<Status> TryView(std::uint32_t budgetMicroseconds,
                                const std::function<void(const LogView&)>& look, std::uint32_t timeoutMs);

  // Repeats an attempt, which is given the milliseconds that are left, until it returns a status or the time
  // is over (Unsteady). At least one attempt is made.
  template <typename Attempt>
  Status Repeat(std::uint32_t timeoutMs, Attempt attempt);

  // Does `work` in one consistent read, which it is given.
  template <typename Work>
  std::optional<Status> Read(std::uint32_t timeoutMs, Work work);

  std::optional<Status> CopyTail(LogTail& tail, const std::vector<std::uint32_t>& probes) const;
  // Copies the newest `count` slots; all slots when the header is not valid. Stops when `read` is
  // invalidated. Returns false for a page that cannot be read.
  bool CopySlots(LogSnapshot& snapshot, std::int64_t count, ConsistentRead& read) const;

  MappedLog log;
  const LogSnapshot* lastFilled = nullptr;  // by Snapshot, with `lastHeader`; only compared
  LogFileHeader lastHeader{};
  std::uint64_t lastCopy = 0;  // microseconds
};

}  // namespace TamLogClient
