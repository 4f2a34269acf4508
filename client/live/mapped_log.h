#pragma once

// The log file of a running server, mapped read-only, and the event that shows whether the server is writing.
// Nothing here changes anything that the server sees: a process that is killed or suspended at any moment
// leaves no trace. What is copied may be torn; client/live/consistent_read.h decides what counts.
//
// Mapped bytes are copied through TamLogClientGuardedCopy, so that a page that cannot be read (the disk under
// the mapping fails, or the file was cut) becomes a status.
//
// A mapped log belongs to one thread at a time.

#include <cstddef>
#include <cstdint>
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
  // later); AccessDenied; InPage; Damaged when the mapping is too small for a log; ForeignEvents when it
  // names events that `accepted` excludes. On failure nothing stays open.
  Status Open(const std::string& mapName, EventNames accepted = EventNames::OfTheServer);

  // Closes view, mapping and event together. Does nothing when nothing is open.
  void Close();
  bool IsOpen() const { return view != nullptr; }

  bool CopyHeader(LogFileHeader& header) const override;
  bool CopyChangeCount(std::uint64_t& count) const override;
  bool CopySlots(std::size_t first, std::size_t count, LogMessage* to) const override;
  bool CopyNumbers(std::size_t first, std::size_t count, std::uint64_t* to) const override;
  std::size_t SlotCount() const override;
  bool WaitForWriter(std::uint32_t timeoutMs) const override;
  std::uint64_t Now() const override;

  // Returns the slots in place; a page that cannot be read raises a structured exception. Valid until Close.
  const LogMessage* Slots() const;

 private:
  Status MapView();
  Status OpenReadWait(bool ofTheServer);

  Handle mapping;
  Handle readWait;
  const unsigned char* view = nullptr;
  std::size_t viewSize = 0;
};

}  // namespace TamLogClient
