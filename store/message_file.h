#pragma once

// Shared access to the log file: the file, its mapping and view, the named objects, and read access.
// MessageFileServer adds the writer's side. docs/read_access.md has the protocol as a table.
//
// viewLock guards the file, the view, the named objects of the present open, and the accesses of this process
// through them. It is held while mapped bytes are touched and while an event is set or reset for them, never
// while waiting for another process. So an access takes three steps: it remembers the present open (a
// Ticket), waits without any lock, and checks under viewLock that its ticket is still valid before it touches
// anything. Inside viewLock the pending list's lock may be taken (a flush), no other.
//
// Known hazard of the protocol: a reader that passes the read-wait event just before a writer resets it has
// access together with the writer; readCount then drops below 0 when it leaves, and a writer may wait
// forever. Programs in the field use the same steps, so they stay as they are.

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

  // Closes the named objects, the view, the mapping and the file, and wakes every thread of this process that
  // waits for access. Does nothing when nothing is open. Throws what MappedView::Unmap throws, with nothing
  // left open. Any thread.
  virtual void CloseFile();

  // Keeps the names and creates the named objects; the file must be closed. ExceptionBase "Failed to create
  // file access objects in MessageFile::OpenFile()".
  virtual void OpenFile(const std::string& mapName, const std::string& headerLockName,
                        const std::string& readWaitEventName, const std::string& writeWaitEventName,
                        SecurityAttributes* attributes);

  // Returns the lock for a thread that takes write access periodically from outside (MessageFileMonitor). The
  // store itself never takes it.
  Mutex& InProcessLock() { return inProcessLock; }

 protected:
  // Not virtual: an object is never deleted through this class.
  ~MessageFile() = default;

  // Identifies the open, and the mapping within it, that an access belongs to.
  struct Ticket {
    std::shared_ptr<AccessObjects> objects;
    std::uint64_t mapping = 0;
  };

  bool IsOpen() EXCLUDES(viewLock);
  // Returns a ticket for the present open. ExceptionBase `invalidText` unless the objects and the view are
  // open.
  Ticket PresentTicket(const char* invalidText) EXCLUDES(viewLock);

  // Calls use(view) under viewLock; ExceptionBase `invalidText` when the ticket's mapping is gone.
  template <class Use>
  decltype(auto) UseView(const Ticket& ticket, const char* invalidText, Use&& use) EXCLUDES(viewLock) {
    const LeafLock::Guard guard(viewLock);
    CheckTicket(ticket, invalidText);
    return std::forward<Use>(use)(mappedView);
  }

  // The steps of an open that use the file. A close by another thread waits for each of them and closes the
  // file after it; later steps throw ExceptionBase "Failed to grab write access, some handles or pointers are
  // invalid".
  //
  // Moves the handle of the opened file into this object; `opened` receives the previous one.
  void KeepFile(AutoHandle& opened) EXCLUDES(viewLock);
  // Calls use(handle), which must not wait.
  template <class Use>
  void UseFile(Use&& use) EXCLUDES(viewLock) {
    const LeafLock::Guard guard(viewLock);
    CheckOpen();
    std::forward<Use>(use)(file.Get());
  }
  // Maps the whole file under the map name and sets its readCount to 0, both before a thread of this process
  // can enter as reader: one that was counted in between would later leave readCount at -1, and writers would
  // wait forever. Returns and throws what MappedView::Map returns and throws; throws "Failed to reset the
  // read count in SetFileView()".
  bool MapWithoutReaders(SecurityAttributes* attributes, MappedView::Older older) EXCLUDES(viewLock);
  void CloseView() EXCLUDES(viewLock);

  // Reset and set the read-wait event: new readers wait, new readers may enter.
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
  void ReleaseReadAccess(const Ticket& ticket) EXCLUDES(viewLock);
  bool EnterAsReader(const Ticket& ticket) EXCLUDES(viewLock);
  void LeaveAsReader(const Ticket& ticket) EXCLUDES(viewLock);
  void CheckTicket(const Ticket& ticket, const char* invalidText) REQUIRES(viewLock);
  void CheckOpen() REQUIRES(viewLock);
  void EndAccesses() REQUIRES(viewLock);

  // Written by OpenFile only, while no other thread reads them.
  ObjectNames objectNames;

  LeafLock viewLock;
  std::shared_ptr<AccessObjects> openObjects GUARDED_BY(viewLock);
  AutoHandle file GUARDED_BY(viewLock);
  MappedView mappedView GUARDED_BY(viewLock);
  std::uint64_t mappings GUARDED_BY(viewLock) = 0;    // number of times a view was mapped or closed
  std::uint32_t ownReaders GUARDED_BY(viewLock) = 0;  // read accesses of this process in the present mapping
  bool readersHeldOut GUARDED_BY(viewLock) = false;   // read-wait was reset for the present mapping

  Mutex inProcessLock;
};

// Read access for a scope, on one thread.
//
//   const MessageFile::ReadAccess access(&file);
class MessageFile::ReadAccess {
 public:
  // Waits up to `timeout` for a writer to finish; the file must outlive this. ExceptionBase "MessageFile
  // ReadAccess object created with null pointer", "Failed to grab read access, some handles or pointers are
  // invalid" (also when the file is closed meanwhile), "Failed to get message file read access" when the time
  // ran out. A failed access leaves readCount unchanged.
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
