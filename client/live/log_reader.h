#pragma once

// Reads the log of a running server from shared memory, as docs/reader_protocol.md describes it.
//
//   LogReader reader;
//   LogSnapshot snapshot;
//   Status status = reader.Open();
//   if (status == Status::Ok) status = reader.Snapshot(snapshot);
//
// The normal read is Snapshot: one short read access that copies the header and the slots. Inside it nothing
// is allocated, no foreign code is called and nothing is output.
//
// A reader belongs to one thread at a time. That thread must never be ended while it is inside Snapshot,
// Newest or WithView: a reader that dies inside read access stops the server's writing.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "client/live/mapped_log.h"
#include "client/log/log_snapshot.h"
#include "client/log/log_tail.h"
#include "client/message/status.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// The log in place, inside a read access (LogReader::WithView).
class LogView {
 public:
  LogView(const LogFileHeader& copied, const LogMessage* first, std::uint64_t deadlineMicroseconds)
      : header(&copied), slots(first), deadline(deadlineMicroseconds) {}

  // Returns a copy of the header, whose numbers are valid together.
  const LogFileHeader& Header() const { return *header; }

  // Returns a slot; `slot` has to be below Header().maxMessages. The bytes may break any rule of the format;
  // LogMessageView reads them safely.
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

  // Copies the header without read access: a hint that shows whether something changed. Makes no system call.
  // Closes the log and returns NotRunning once `serverRunning` is 0. Call it at least every 250 ms while the
  // log is open: a server that stops waits for its readers.
  Status Look(LogFileHeader& header);

  // Copies the whole log within `timeoutMs`. When `snapshot` is the one that the previous call filled and
  // messages were only appended since, copies only their slots. Damaged: the header is not valid; the slots
  // were still copied, if the mapping holds that many. TimedOut: the server is writing, or a reader inside
  // delays it. Stuck: the header lock is not released. InPage: the system could not read a page. NotRunning:
  // as for Look.
  Status Snapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs = kDefaultTimeoutMs);

  // Copies the newest `count` messages within `timeoutMs`, and the few others that show whether these are
  // also the newest in time (CertainFrom). The statuses are those of Snapshot; Damaged copies nothing.
  Status Newest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs = kDefaultTimeoutMs);

  // Calls `look` with the log in place, without copying. DANGEROUS: while `look` runs, the server cannot
  // write, and other readers queue up after the server; if the process or thread ends there, the server never
  // writes again. `look` must not print, wait, allocate, call foreign code or use this reader, and has to
  // return within `budgetMicroseconds`; the view says when they are over. A page that cannot be read raises a
  // structured exception here. An exception of `look` is rethrown after read access was released.
  //
  // When the writer passed this reader, what `look` saw is invalid, and it is called again with a new view:
  // each call begins from nothing. TimedOut also when `look` exceeded its budget; its result is valid then.
  Status WithView(std::uint32_t budgetMicroseconds, const std::function<void(const LogView&)>& look,
                  std::uint32_t timeoutMs = kDefaultTimeoutMs);

  // Returns how long the last read access was held, in microseconds.
  std::uint64_t LastHoldMicroseconds() const { return lastHold; }

 private:
  // The result of the work inside a read access. Again: the log was not as expected; try again.
  enum class Work : std::uint8_t { Done, Again, Fault };

  // These are attempts: nothing means that the copy cannot be trusted, and another attempt may succeed.
  std::optional<Status> Inside(std::uint32_t timeoutMs, LogFileHeader& header,
                               const std::function<Work()>& work);
  std::optional<Status> TrySnapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs);
  std::optional<Status> TryNewest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs);
  std::optional<Status> TryView(std::uint32_t budgetMicroseconds,
                                const std::function<void(const LogView&)>& look, std::uint32_t timeoutMs);

  Work WorkInside(LogFileHeader& header, const std::function<Work()>& work) const;
  Work CopyTail(LogTail& tail, const LogFileHeader& expected, const std::vector<std::uint32_t>& probes) const;
  bool CopySlots(LogSnapshot& snapshot, const LogFileHeader* known) const;
  bool CopyRange(LogSnapshot& snapshot, std::int64_t first, std::int64_t end) const;

  MappedLog log;
  const LogSnapshot* lastFilled = nullptr;  // by Snapshot, with `lastHeader`; only compared
  LogFileHeader lastHeader{};
  std::uint64_t lastHold = 0;  // microseconds
};

}  // namespace TamLogClient
