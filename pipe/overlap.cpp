#include "pipe/overlap.h"

#include <array>

#include "util/exceptions.h"
#include "util/timeout.h"

using TamLogUtil::AutoHandle;
using TamLogUtil::NativeHandle;
using TamLogUtil::Exceptions::ExceptionBase;
using TamLogUtil::Exceptions::ExceptionWindows;

namespace {

// An operation whose thread was terminated may never report its end; the destructor waits no longer than
// this.
constexpr std::uint32_t kAbandonedAfterMs = 1000;

void CreateUnsignalledEvent(AutoHandle& event, const char* failure) {
  event = PipeCalls::NewEvent();
  // The last error is that of the failing call: taking a null handle makes no system call, and a handle that
  // could not be duplicated leaves the error of the duplication.
  if (event.IsInvalid()) throw ExceptionWindows(failure);
}

}  // namespace

Overlap::Overlap() {
  CreateUnsignalledEvent(completionEvent, "Failed to create the completion event in Overlap construction");
  CreateUnsignalledEvent(cancelEvent, "Failed to create the cancellation event in Overlap construction");
  overlapped = PipeCalls::NewOverlapped(completionEvent.Get());
}

Overlap::~Overlap() {
  CancelAndAwaitEnd(kAbandonedAfterMs);
}

std::uint32_t Overlap::Wait(std::uint32_t milliseconds) {
  const std::array<NativeHandle, 2> events = {completionEvent.Get(), cancelEvent.Get()};
  const std::int32_t signalled =
      TamLogUtil::CheckedWaitForMultipleObjects(events.size(), events.data(), false, milliseconds);
  if (signalled != 0) return kNotCompleted;
  return PipeCalls::StatusOf(*overlapped);
}

std::uint32_t Overlap::Result(NativeHandle handle, std::uint32_t error, std::uint32_t milliseconds) {
  if (error != PipeCalls::kPending) return error;
  pendingOn = handle;
  std::uint32_t result = kNotCompleted;
  try {
    result = Wait(milliseconds);
  } catch (...) {
    // A caller's destructor may close the handle.
    Settle();
    throw;
  }
  if (result != kNotCompleted) pendingOn = nullptr;
  return result;
}

void Overlap::Settle() {
  CancelAndAwaitEnd(TamLogUtil::Timeout::kForever);
}

void Overlap::CancelAndAwaitEnd(std::uint32_t milliseconds) {
  if (pendingOn == nullptr) return;
  PipeCalls::Cancel(pendingOn, overlapped.get());
  PipeCalls::AwaitEvent(completionEvent.Get(), milliseconds);
  pendingOn = nullptr;
}

void Overlap::Cancel() {
  try {
    TamLogUtil::CheckedSetEvent(cancelEvent.Get());
  } catch (const ExceptionBase& e) {
    throw ExceptionBase("Failed to cancel asynchronous operation", &e);
  }
}

void Overlap::Reset() {
  try {
    TamLogUtil::CheckedResetEvent(cancelEvent.Get());
  } catch (const ExceptionBase& e) {
    throw ExceptionBase("Failed to reset overlap object", &e);
  }
}
