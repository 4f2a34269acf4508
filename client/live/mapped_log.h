#pragma once

// The log file of a running server as this process sees it: the mapping, its views, and the events of the
// lock protocol. docs/reader_protocol.md describes the protocol; this is the reader's side of it.
//
// Mapped bytes are copied through TamLogClientGuardedCopy, so that a page that cannot be read (the disk under
// the mapping fails, or the file was cut) becomes a status. The slots are mapped read-only. Only the page of
// the header is writable, for `readCount`.
//
// A mapped log belongs to one thread at a time. That thread must not be ended between Enter and Leave: the
// count of readers would stay raised, and the server would never write again.

#include <cstddef>
#include <cstdint>
#include <string>

#include "client/live/event_names.h"
#include "client/live/handle.h"
#include "client/message/status.h"
#include "records/log_file_format.h"

namespace TamLogClient {

class MappedLog {
 public:
  // How a read access ended.
  enum class Left : std::uint8_t {
    Normally,
    PassedByWriter,  // the writer did not wait for this reader: the copy may mix two states of the log
    Fault,           // the page of the header could not be read or written
  };

  MappedLog() = default;
  ~MappedLog() { Close(); }
  MappedLog(const MappedLog&) = delete;
  MappedLog& operator=(const MappedLog&) = delete;

  // Opens the mapping by its name and the events by the names in the log. NotRunning when nothing is shared,
  // the server has the log closed, or, for the server's own name, its pipes do not exist yet (try again
  // later); AccessDenied; InPage; Damaged when the mapping is too small for a log; ForeignEvents when it
  // names events that `accepted` excludes. On failure nothing stays open.
  Status Open(const std::string& mapName, EventNames accepted = EventNames::OfTheServer);

  // Closes views, mapping and events together. Does nothing when nothing is open.
  void Close();
  bool IsOpen() const { return headerView != nullptr; }

  // Copies the header, with or without read access. Returns false when its page cannot be read.
  bool CopyHeader(LogFileHeader& header) const;

  // Copies `count` slots, from slot `first` on; all of them have to be below SlotCount(). Returns false when
  // one of their pages cannot be read; then a part may have been copied.
  bool CopySlots(std::size_t first, std::size_t count, LogMessage* to) const;

  // Returns the slots in place; a page that cannot be read raises a structured exception. Valid until Close.
  const LogMessage* Slots() const;

  // Returns the number of slots that are in the mapping as a whole.
  std::size_t SlotCount() const;

  // Takes read access. Ok: the caller is inside and has to call Leave. TimedOut: the server is writing, or is
  // waiting for a reader that stays inside. Stuck: the header lock is not released. InPage: the count of
  // readers could not be raised.
  Status Enter(std::uint32_t timeoutMs);

  // Releases read access. Waits up to 30 s for the header lock and leaves without it after that.
  Left Leave();

 private:
  Status MapViews();
  Status OpenEvents(bool ofTheServer);
  Status TakeHeaderLock(std::uint32_t timeoutMs);
  bool ChangeReadCount(std::int32_t step, std::int32_t& result);

  Handle mapping;
  Handle headerLock;
  Handle readWait;
  Handle writeWait;
  unsigned char* headerView = nullptr;      // writable, kSlotsOffset bytes
  const unsigned char* fileView = nullptr;  // read-only, viewSize bytes
  std::size_t viewSize = 0;
};

}  // namespace TamLogClient
