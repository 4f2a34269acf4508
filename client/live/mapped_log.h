#pragma once

// The log file of a running server, mapped read-only, and the event that shows whether the server is writing.
// Nothing here changes anything that the server sees: a process that is killed or suspended at any moment
// leaves no trace. What is copied may be torn; client/live/consistent_read.h decides what counts.
//
// Mapped bytes are copied through TamLogClientGuardedCopy, so that a page that cannot be read (the disk under
// the mapping fails, or the file was cut) becomes a status.
//
// A mapped log belongs to one thread at a time; ReleaseIfStopped may be called from any other meanwhile.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "client/live/event_names.h"
#include "client/live/handle.h"
#include "client/live/log_memory.h"
#include "client/message/status.h"
#include "records/log_file_format.h"

namespace TamLogClient {

class MappedLog final : public LogMemory {
 public:
  MappedLog() = default;
  ~MappedLog() override { Close(); }
  MappedLog(const MappedLog&) = delete;
  MappedLog& operator=(const MappedLog&) = delete;

  // Opens the mapping by its name and the event by the name in the log. NotRunning when nothing is shared,
  // the server has the log closed, or, for the server's own name, its pipes do not exist yet (try again
  // later); AccessDenied; InPage; Damaged when the mapping is too small for a log, or larger than a server
  // makes one; ForeignEvents when it names events that `accepted` excludes. On failure nothing stays open.
  Status Open(const std::string& mapName, EventNames accepted = EventNames::OfTheServer);

  // Closes view, mapping and event together. Does nothing when nothing is open.
  void Close();
  bool IsOpen() const { return view != nullptr; }

  // Releases view, mapping and event when the server has closed the log, whatever the owner's thread is
  // doing: its copies and waits fail from now on. Waits about 0.1 s for a running copy and a running wait.
  // From any thread. The owner still has to call Close.
  void ReleaseIfStopped();
  // Returns whether ReleaseIfStopped has released the log.
  bool WasReleased() const { return released; }

  bool CopyHeader(LogFileHeader& header) const override;
  bool CopyChangeCount(std::uint64_t& count) const override;
  bool CopySlots(std::size_t first, std::size_t count, LogMessage* to) const override;
  bool CopySlotStart(std::size_t slot, std::size_t bytes, LogMessage* to) const override;
  bool CopyNumbers(std::size_t first, std::size_t count, std::uint64_t* to) const override;
  std::size_t SlotCount() const override;
  bool WaitForWriter(std::uint32_t timeoutMs) const override;
  std::uint64_t Now() const override;

  // Returns the slots in place; a page that cannot be read raises a structured exception. Valid until Close.
  const LogMessage* Slots() const;

 private:
  Status OpenAll(const std::string& mapName, EventNames accepted);
  Status MapView();
  Status OpenReadWait(bool ofTheServer);
  void CloseAll();
  bool Copy(void* to, std::size_t offset, std::size_t bytes, std::size_t stride = 0) const;
  bool CopyEnds() const;

  // Guards opening, closing, releasing and the event; never held while slots are copied.
  mutable std::mutex opening;
  std::atomic<bool> released{false};
  mutable std::atomic<int> copying{0};  // running calls of Copy
  bool reserved = false;                // the view's addresses stay reserved until Close
  Handle mapping;
  Handle readWait;
  const unsigned char* view = nullptr;
  std::size_t viewSize = 0;
};

}  // namespace TamLogClient
