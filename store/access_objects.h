#pragma once

// The named objects by which the writer and the readers of one open log file keep out of each other's way,
// and a private event that says "this open is over".
//
// Every wait is also a wait for that event. CloseFile signals it, so that no thread of this process stays
// behind in a wait for readers that will never leave; the objects themselves live until the last waiter has
// let go of them (they are held by shared_ptr). Any thread may use them.

#include <cstdint>
#include <memory>
#include <string>

#include "util/native_handle.h"
#include "util/sync.h"
#include "util/unwind_check.h"

namespace TamLogUtil {

enum class WaitOutcome : std::uint8_t { Signalled, TimedOut, Closed };

// Waits up to `milliseconds` for `wanted` or for `closing`, which may be null. When both are signalled, the
// outcome is Signalled: an auto-reset event is taken then, and the caller has to give it back.
WaitOutcome WaitUnlessClosed(NativeHandle wanted, NativeHandle closing, std::uint32_t milliseconds);

class AccessObjects {
 public:
  // Creates the objects, or opens them as they are when another process keeps them alive. Fails as Event and
  // Mutex do.
  AccessObjects(const std::string& headerLockName, const std::string& readWaitName,
                const std::string& writeWaitName, SecurityAttributes* attributes);

  // "Failed to Wait for Mutex object".
  WaitOutcome TakeHeaderLock(std::uint32_t milliseconds) const;
  // "Failed to RemoveSignal for Mutex object".
  void GiveBackHeaderLock();

  // Signalled while readers may enter. "Failed to Wait for Event object".
  WaitOutcome WaitForReadWait(std::uint32_t milliseconds) const;
  // Gives the header lock back, then waits for read-wait, in one call into the system when there is nothing
  // to wait for. Fails as the two do.
  WaitOutcome LeaveHeaderLockForReadWait(std::uint32_t milliseconds);
  // Signalled while no reader is inside.
  WaitOutcome WaitForWriteWait(std::uint32_t milliseconds) const;

  Event& ReadWait() { return *readWait; }
  Event& WriteWait() { return *writeWait; }

  // Ends all waits, those that begin later too.
  void EndWaits() { closing->SetSignal(); }
  NativeHandle Closing() const { return closing->Handle(); }

 private:
  // An event's destructor may throw; nobody is left then who could do anything about it.
  struct DestroyQuietly {
    void operator()(Event* event) const noexcept;
  };
  using OwnedEvent = std::unique_ptr<Event, DestroyQuietly>;

  WaitOutcome WaitFor(const Event& event, std::uint32_t milliseconds) const;

  OwnedEvent closing;
  Mutex headerLock;  // named a mutex, but an event used as a lock: any process may give it back
  OwnedEvent readWait;
  OwnedEvent writeWait;
};

// Holds the header lock of a file for a scope.
class HeaderLock {
 public:
  // Waits without limit; throws ExceptionBase `closedText` when the open ends meanwhile.
  HeaderLock(AccessObjects& accessObjects, const char* closedText);
  // Throws what GiveBackHeaderLock throws, unless the stack unwinds.
  ~HeaderLock() noexcept(false);
  HeaderLock(const HeaderLock&) = delete;
  HeaderLock& operator=(const HeaderLock&) = delete;

 private:
  AccessObjects& objects;
  UnwindCheck unwindCheck;
};

}  // namespace TamLogUtil
