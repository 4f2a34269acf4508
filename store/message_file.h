#pragma once

// What a process needs to share the log file: the mapping, its view, the named objects, and read access.
// MessageFileServer adds the writer's side. docs/reader_protocol.md has the protocol as a table.
//
// viewLock guards the view, the objects of the open that it belongs to and what this process has open through
// them. It is held while mapped bytes are touched and while an event is set or reset for them, never while
// waiting for another process. So an access works in three steps: it remembers the present open (a Ticket),
// waits without any lock, and looks again under viewLock whether its ticket still holds before it touches
// anything. Inside viewLock the pending list's lock may be taken (a flush), no other.
//
// What a reader must know: one that passes the read-wait event just before a writer resets it is inside
// together with the writer; readCount then ends below 0 when it leaves, and a writer may wait without end.
// The steps are shared with programs in the field and are kept as they are.

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "store/access_objects.h"
#include "store/mapped_view.h"
#include "util/exceptions.h"
#include "util/leaf_lock.h"
#include "util/native_handle.h"
#include "util/sync.h"
#include "util/thread_annotations.h"
#include "util/timeout.h"
#include "util/unwind_check.h"

class MessageFileServer;

namespace TamLogUtil {

class MessageFile {
 public:
  class ReadAccess;

  MessageFile() = default;
  MessageFile(const MessageFile&) = delete;
  MessageFile& operator=(const MessageFile&) = delete;

  // Closes the named objects, the view and the mapping, and wakes every thread of this process that waits for
  // access. Nothing to do when nothing is open. Fails as MappedView::Unmap does, with nothing left open. Any
  // thread.
  virtual void CloseFile();

  // Keeps the names and creates the named objects; the file has to be closed. ExceptionBase "Failed to create
  // file access objects in MessageFile::OpenFile()".
  virtual void OpenFile(const std::string& mapName, const std::string& headerLockName,
                        const std::string& readWaitEventName, const std::string& writeWaitEventName,
                        SecurityAttributes* attributes);

  // For a thread that takes write access again and again from outside (MessageFileMonitor). The store itself
  // never takes it.
  Mutex& InProcessLock() { return inProcessLock; }

 protected:
  // Not virtual: nobody owns one through this class.
  ~MessageFile() = default;

  // Which open, and which mapping of it, an access belongs to.
  struct Ticket {
    std::shared_ptr<AccessObjects> objects;
    std::uint64_t mapping = 0;
  };

  bool IsOpen() EXCLUDES(viewLock);
  // ExceptionBase `invalidText` unless all objects and the view are there.
  Ticket PresentTicket(const char* invalidText) EXCLUDES(viewLock);

  // Calls use(view) under viewLock; ExceptionBase `invalidText` when the ticket's mapping is gone.
  template <class Use>
  decltype(auto) UseView(const Ticket& ticket, const char* invalidText, Use&& use) EXCLUDES(viewLock) {
    const LeafLock::Guard guard(viewLock);
    CheckTicket(ticket, invalidText);
    return std::forward<Use>(use)(mappedView);
  }

  // Maps the whole of `file` under the map name and sets its read count to 0, both before a thread of this
  // process can come in as reader: one that was counted in between would leave a count of -1 behind, and
  // writers would wait for good. Fails as MappedView::Map does, or with "Failed to reset the read count in
  // SetFileView()".
  void MapWithoutReaders(NativeHandle file, SecurityAttributes* attributes) EXCLUDES(viewLock);
  void CloseView() EXCLUDES(viewLock);

  // The two sides of the read-wait event: new readers wait, new readers may enter.
  void HoldReadersOut(const Ticket& ticket, const char* invalidText) EXCLUDES(viewLock);
  void LetReadersIn(const Ticket& ticket, const char* invalidText) EXCLUDES(viewLock);

  struct ObjectNames {
    std::string mapping;
    std::string headerLock;
    std::string readWait;
    std::string writeWait;
  };
  const ObjectNames& Names() const { return objectNames; }

 private:
  Ticket TakeReadAccess(Timeout& timeout) EXCLUDES(viewLock);
  void GiveBackReadAccess(const Ticket& ticket) EXCLUDES(viewLock);
  bool EnterAsReader(const Ticket& ticket) EXCLUDES(viewLock);
  void LeaveAsReader(const Ticket& ticket) EXCLUDES(viewLock);
  void CheckTicket(const Ticket& ticket, const char* invalidText) REQUIRES(viewLock);
  void EndAccesses() REQUIRES(viewLock);

  // Written by OpenFile only, which runs beside nothing that reads them.
  ObjectNames objectNames;

  LeafLock viewLock;
  std::shared_ptr<AccessObjects> openObjects GUARDED_BY(viewLock);
  MappedView mappedView GUARDED_BY(viewLock);
  std::uint64_t mappings GUARDED_BY(viewLock) = 0;    // how often a view was mapped or closed
  std::uint32_t ownReaders GUARDED_BY(viewLock) = 0;  // read accesses of this process in the present mapping
  bool readersHeldOut GUARDED_BY(viewLock) = false;   // read-wait was reset for the present mapping

  Mutex inProcessLock;
};

// Read access for a scope, on one thread.
//
//   const MessageFile::ReadAccess access(&file);
class MessageFile::ReadAccess {
 public:
  // Waits for a writer to be done, up to `timeout`; the file has to outlive this. ExceptionBase "MessageFile
  // ReadAccess object created with null pointer", "Failed to grab read access, some handles or pointers are
  // invalid" (also when the file is closed meanwhile), "Failed to get message file read access" when the time
  // ran out. A failed access leaves the count of readers as it was.
  explicit ReadAccess(MessageFile* messageFile, Timeout& timeout = Timeout::Infinite);
  // Throws "Failed to release message file read access", unless the stack unwinds.
  ~ReadAccess() noexcept(false);
  ReadAccess(const ReadAccess&) = delete;
  ReadAccess& operator=(const ReadAccess&) = delete;

 private:
  friend class ::MessageFileServer;

  MessageFile* file;
  UnwindCheck unwindCheck;
  Ticket ticket;
};

}  // namespace TamLogUtil
