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
#include <string>

#include "client/handle.h"
#include "client/log_snapshot.h"
#include "client/status.h"
#include "store/log_file_format.h"

namespace TamLogClient {

class LogReader {
 public:
  static constexpr std::uint32_t kDefaultTimeoutMs = 5000;

  LogReader() = default;
  ~LogReader() { Close(); }
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  // Opens the mapping by name and the events by the names that the log itself tells. NotRunning when nothing
  // is shared or the server has the log closed (try again later), AccessDenied, Damaged when the section is
  // too small to be a log. On failure nothing stays open.
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

  // How long the last Snapshot held read access.
  std::uint64_t LastHoldMicroseconds() const { return lastHold; }

  // How often this reader and the writer passed each other, so that a copy had to be taken again.
  std::uint64_t PassedCount() const { return passed; }

 private:
  enum class Left : std::uint8_t { Normally, UnderTheWriter, Fault };

  Status MapViews();
  Status OpenEvents();
  Status Enter(std::uint32_t timeoutMs);
  Left Leave();
  Status TrySnapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs, bool& again);
  Status CopyInside(LogSnapshot& snapshot, const LogFileHeader* known, bool& again);
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
