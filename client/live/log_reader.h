#pragma once

// Reads the log of a running server from shared memory, as docs/reader_protocol.md describes it.
//
// The normal read is Snapshot: one short read access in which header and slots are copied, and nothing else
// happens: no allocation, no call of foreign code, no output. A reader belongs to one thread and must never
// be ended while it is inside Snapshot: a reader that dies inside read access stops the server's writing.
//
// The slots are mapped read-only. Only the page of the header is writable, for `readCount`.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "client/live/handle.h"
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

  const LogFileHeader& Header() const { return *header; }  // a sound copy

  // `slot` has to be below Header().maxMessages. The bytes may be of any kind: see LogMessageView.
  const LogMessage& Slot(std::uint32_t slot) const { return slots[slot]; }

  // The time that was asked for is over: return.
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
  ~LogReader() { Close(); }
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  // Opens the mapping by name and the events by the names that the log itself tells. NotRunning when nothing
  // is shared, the server has the log closed, or, by the usual name, has not come to its pipes yet (try again
  // later), AccessDenied, Damaged when the section is too small to be a log. On failure nothing stays open.
  Status Open(const std::string& mapName = kFileMapName);

  // Gives up views, mapping and events together.
  void Close();
  bool IsOpen() const { return headerView != nullptr; }

  // Copies the header without read access: a hint only, to see whether something changed. Costs no system
  // call. Closes everything and gives NotRunning once `serverRunning` is 0; call it at least every 250 ms
  // while open, because a server that stops waits for its readers.
  Status Look(LogFileHeader& header);

  // Takes read access within `timeoutMs`, copies, and leaves. When `snapshot` is the one that the last call
  // filled and messages were only appended since, only their slots are copied. Damaged gives the slots all
  // the same when the header makes no sense. TimedOut: the server is writing, or a reader inside holds it up;
  // Stuck: the header lock is not given back.
  Status Snapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs = kDefaultTimeoutMs);

  // Like Snapshot, but copies the newest `count` messages only, and of the others the few that tell whether
  // these are the newest in time as well (CertainFrom).
  Status Newest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs = kDefaultTimeoutMs);

  // Calls `look` with the log in place, without copying: DANGEROUS. While `look` runs, the server cannot
  // write, and other readers pile up behind it; if the process or thread ends there, the server never writes
  // again. So `look` must not print, wait, allocate, call foreign code or use this reader, and has to return
  // within `budgetMicroseconds`, which it can ask the view for. A page that cannot be read is not caught here
  // as it is in Snapshot. What `look` throws is passed on after read access was given back.
  //
  // `look` may be called several times: when the writer passed this reader, what it saw is worth nothing, and
  // it is called again with a fresh view; each call begins anew. TimedOut also when `look` overran its budget
  // (its result may be used).
  Status WithView(std::uint32_t budgetMicroseconds, const std::function<void(const LogView&)>& look,
                  std::uint32_t timeoutMs = kDefaultTimeoutMs);

  // How long the last read access was held.
  std::uint64_t LastHoldMicroseconds() const { return lastHold; }

  // How often this reader and the writer passed each other, so that a copy had to be taken again.
  std::uint64_t PassedCount() const { return passed; }

 private:
  enum class Left : std::uint8_t { Normally, UnderTheWriter, Fault };

  Status MapViews();
  Status OpenEvents();
  // Takes the header lock at a moment at which readers may enter.
  Status TakeHeaderLock(std::uint32_t timeoutMs);
  Status Enter(std::uint32_t timeoutMs);
  Left Leave();
  // What the work inside a read access came to.
  enum class Work : std::uint8_t { Done, Again, Fault };

  Status Inside(std::uint32_t timeoutMs, LogFileHeader& header, bool& again,
                const std::function<Work()>& work);
  Status TrySnapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs, bool& again);
  Status TryNewest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs, bool& again);
  Status TryView(std::uint32_t budgetMicroseconds, const std::function<void(const LogView&)>& look,
                 std::uint32_t timeoutMs, bool& again);
  Work CopyTail(LogTail& tail, const LogFileHeader& expected, const std::vector<std::uint32_t>& probes);
  Status CopySlots(LogSnapshot& snapshot, const LogFileHeader* known);
  Status CopyRange(LogSnapshot& snapshot, std::int64_t first, std::int64_t end);
  Status CopyHeader(LogFileHeader& header) const;
  bool ChangeReadCount(std::int32_t step, std::int32_t& result);
  std::size_t SlotsInView() const;

  Handle mapping;
  Handle headerLock;
  Handle readWait;
  Handle writeWait;
  unsigned char* headerView = nullptr;      // writable, kSlotsOffset bytes
  const unsigned char* fileView = nullptr;  // read-only, viewSize bytes
  std::size_t viewSize = 0;
  const LogSnapshot* lastFilled = nullptr;
  LogFileHeader lastHeader{};
  std::uint64_t lastHold = 0;
  std::uint64_t passed = 0;
};

}  // namespace TamLogClient
