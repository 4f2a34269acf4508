#pragma once

// One overlapped operation at a time, with a cancellation that any thread can call in.
//
// The thread that makes the operations owns everything here except Cancel and Reset, which any thread may
// call. The OVERLAPPED, its event and the operation's buffers belong to the system while an operation is
// under way: Settle gets them back, and the destructor does so too.
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
  // What Wait returns when the time ran out or Cancel was called; the system's own wait-time-out code.
  static constexpr std::uint32_t kNotCompleted = PipeCalls::kWaitTimeout;

  // ExceptionWindows "Failed to create the completion event in Overlap construction", "Failed to create the
  // cancellation event in Overlap construction".
  Overlap();
  ~Overlap();
  Overlap(const Overlap&) = delete;
  Overlap& operator=(const Overlap&) = delete;

  // To be passed to ReadFile, WriteFile or ConnectNamedPipe; owned by this object.
  _OVERLAPPED* Overlapped() { return overlapped.get(); }

  // Waits for the operation under way. Returns the status that the system left in the OVERLAPPED (0 on
  // success, otherwise a status of the kernel such as 0x80000005, not an error code such as 234), or
  // kNotCompleted. An operation that has completed wins over a cancellation. Throws what
  // CheckedWaitForMultipleObjects throws.
  std::uint32_t Wait(std::uint32_t milliseconds);

  // The outcome of the call that was just made on `handle` with Overlapped(): `error` is 0 or the call's
  // error code. It is returned as it is, except that a pending operation's outcome is that of Wait. (After an
  // immediate failure the OVERLAPPED still says "pending", so it must not be asked.) After kNotCompleted the
  // operation is still under way; call Settle before the next one and before a buffer of it is given up.
  std::uint32_t Result(TamLogUtil::NativeHandle handle, std::uint32_t error, std::uint32_t milliseconds);

  // Nothing when no operation is under way. Otherwise cancels it and waits without limit until the system has
  // let go of it.
  void Settle();

  // Ends the present wait and all later ones at once, until Reset. ExceptionBase "Failed to cancel
  // asynchronous operation".
  void Cancel();
  // ExceptionBase "Failed to reset overlap object".
  void Reset();

 private:
  void CancelAndAwaitEnd(std::uint32_t milliseconds);

  TamLogUtil::AutoHandle cancelEvent;
  TamLogUtil::AutoHandle completionEvent;
  PipeCalls::OwnedOverlapped overlapped;
  TamLogUtil::NativeHandle pendingOn =
      nullptr;  // the handle of the operation under way; null when there is none
};
