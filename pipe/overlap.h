#pragma once

// One overlapped operation at a time, which any thread can cancel.
//
// One thread makes the operations and calls everything here except Cancel and Reset, which any thread may
// call. The OVERLAPPED, its event and the operation's buffers belong to the system while an operation is
// pending; Settle and the destructor end it.
//
//   error = ReadFile(pipe, ..., overlap.Overlapped()) ? 0 : GetLastError();
//   error = overlap.Result(pipe, error, 10000);

#include <cstdint>
#include <memory>

#include "pipe/pipe_calls.h"
#include "util/native_handle.h"
#include "util/sync.h"

struct _OVERLAPPED;

class Overlap {
 public:
  // Returned by Wait when the time ran out or Cancel was called; the system's own time-out code.
  static constexpr std::uint32_t kNotCompleted = PipeCalls::kWaitTimeout;

  // ExceptionWindows "Failed to create the completion event in Overlap construction", "Failed to create the
  // cancellation event in Overlap construction".
  Overlap();
  ~Overlap();
  Overlap(const Overlap&) = delete;
  Overlap& operator=(const Overlap&) = delete;

  // Returns the OVERLAPPED for ReadFile, WriteFile or ConnectNamedPipe; owned by this object.
  _OVERLAPPED* Overlapped() { return overlapped.get(); }

  // Waits for the pending operation. Returns the status that the system left in the OVERLAPPED (0 on success,
  // otherwise a kernel status such as 0x80000005, not an error code such as 234), or kNotCompleted. A
  // completed operation takes precedence over a cancellation. Throws what CheckedWaitForMultipleObjects
  // throws.
  std::uint32_t Wait(std::uint32_t milliseconds);

  // Returns the outcome of the call just made on `handle` with Overlapped(), whose result was `error`, 0 or
  // an error code: that of Wait if the operation is pending, else `error` itself. (After an immediate failure
  // the OVERLAPPED still says "pending", so it is not read then.) After kNotCompleted the operation is still
  // pending: call Settle before the next one and before its buffer goes.
  std::uint32_t Result(TamLogUtil::NativeHandle handle, std::uint32_t error, std::uint32_t milliseconds);

  // Cancels a pending operation and waits without limit until it has ended. Does nothing when none is
  // pending.
  void Settle();

  // Ends the present wait and all later ones until Reset. ExceptionBase "Failed to cancel asynchronous
  // operation".
  void Cancel();
  // Ends the effect of Cancel. ExceptionBase "Failed to reset overlap object".
  void Reset();

 private:
  void CancelAndAwaitEnd(std::uint32_t milliseconds);

  TamLogUtil::AutoHandle cancelEvent;
  TamLogUtil::AutoHandle completionEvent;
  PipeCalls::OwnedOverlapped overlapped;
  TamLogUtil::NativeHandle pendingOn = nullptr;  // the handle of the pending operation, or null
};
