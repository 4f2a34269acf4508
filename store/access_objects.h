#pragma once

// The named objects that keep the writer and the readers of one open log file apart, and a private event that
// ends the waits of this process when the file is closed.
//
// Every wait is also a wait for that event. CloseFile signals it, so that no thread of this process keeps
// waiting for readers that never leave. Waiters hold the objects by shared_ptr, so the objects live until the
// last wait has returned. Any thread may use them.

#include <cstdint>
#include <memory>
#include <string>

#include "util/native_handle.h"
#include "util/sync.h"
#include "util/unwind_check.h"

namespace TamLogUtil {

enum class WaitOutcome : std::uint8_t { Signalled, TimedOut, Closed };

// Waits up to `milliseconds` for `wanted` or for `closing`, which may be null. When both are signalled the
// outcome is Signalled: an automatic-reset event has then been taken, and the caller has to set it again.
WaitOutcome WaitUnlessClosed(NativeHandle wanted, NativeHandle closing, std::uint32_t milliseconds);

class AccessObjects {
 public:
  // Creates the objects, or opens them in their present state when another process keeps them alive. Throws
  // what Event and Mutex throw.
  AccessObjects(const std::string& headerLockName, const std::string& readWaitName,
                const std::string& writeWaitName, SecurityAttributes* attributes);

  // Waits for the header lock and takes it. "Failed to Wait for Mutex object".
  WaitOutcome TakeHeaderLock(std::uint32_t milliseconds) const;
  // Releases the header lock. "Failed to RemoveSignal for Mutex object".
  void ReleaseHeaderLock();

  // Waits for read-wait, which is signalled while readers may enter. "Failed to Wait for Event object".
  WaitOutcome WaitForReadWait(std::uint32_t milliseconds) const;
  // Releases the header lock, then waits for read-wait; one system call when read-wait is already signalled.
  // Throws what the two throw.
  WaitOutcome ReleaseHeaderLockAndWaitForReadWait(std::uint32_t milliseconds);
  // Waits for write-wait, which is signalled while no reader has access.
  WaitOutcome WaitForWriteWait(std::uint32_t milliseconds) const;

  Event& ReadWait() { return *readWait; }
  Event& WriteWait() { return *writeWait; }

  // Ends all waits, also those that begin later.
  void EndWaits() { closing->SetSignal(); }
  NativeHandle Closing() const { return closing->Handle(); }

 private:
  // Drops what an event's destructor throws: no caller could handle it.
  struct DestroyQuietly {
    void operator()(Event* event) const noexcept;
  };
  using OwnedEvent = std::unique_ptr<Event, DestroyQuietly>;

  WaitOutcome WaitFor(const Event& event, std::uint32_t milliseconds) const;

  OwnedEvent closing;
  Mutex headerLock;  // an event used as a lock: any process may release it
  OwnedEvent readWait;
  OwnedEvent writeWait;
};

// Holds the header lock of a file for a scope.
class HeaderLock {
 public:
  // Waits without limit; throws ExceptionBase `closedText` when the open ends meanwhile.
  HeaderLock(AccessObjects& accessObjects, const char* closedText);
  // Throws what ReleaseHeaderLock throws, unless the stack unwinds.
  ~HeaderLock() noexcept(false);
  HeaderLock(const HeaderLock&) = delete;
  HeaderLock& operator=(const HeaderLock&) = delete;

 private:
  AccessObjects& objects;
  UnwindCheck unwindCheck;
};

}  // namespace TamLogUtil
