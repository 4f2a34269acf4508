// The system calls of util/sync.h: events, handles and waits.

#include "util/exceptions.h"
#include "util/sync.h"
#include "util/win32.h"

namespace TamLogUtil {

using Exceptions::ExceptionBase;
using Exceptions::ExceptionWindows;

int CheckedCloseHandle(NativeHandle handle) {
  const BOOL result = CloseHandle(handle);
  if (result == 0) throw ExceptionWindows("CloseHandle() failed:");
  return result;
}

void CloseQuietly(NativeHandle handle) {
  CloseHandle(handle);
}

NativeHandle CheckedCreateEvent(SecurityAttributes* attributes, bool manualReset, bool initialState,
                                const char* name) {
  const HANDLE handle = CreateEventA(attributes, manualReset, initialState, name);
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) throw ExceptionWindows("CreateEvent() failed");
  return handle;
}

void CheckedResetEvent(NativeHandle handle) {
  if (ResetEvent(handle) == 0) throw ExceptionWindows("ResetEvent failed");
}

bool CheckedSetEvent(NativeHandle handle) {
  if (SetEvent(handle) == 0) throw ExceptionWindows("SetEvent failed");
  return true;
}

bool CheckedWaitForSingleObject(NativeHandle handle, std::uint32_t milliseconds) {
  const DWORD result = WaitForSingleObject(handle, milliseconds);
  if (result == WAIT_FAILED || result == WAIT_ABANDONED) throw ExceptionWindows("WaitForSingleObject failed");
  return result != WAIT_TIMEOUT;
}

std::optional<bool> SetEventAndPoll(NativeHandle toSet, NativeHandle wanted) {
  switch (SignalObjectAndWait(toSet, wanted, 0, FALSE)) {
    case WAIT_OBJECT_0:
      return true;
    case WAIT_TIMEOUT:
      return false;
    default:
      return std::nullopt;
  }
}

std::int32_t CheckedWaitForMultipleObjects(std::uint32_t count, const NativeHandle* handles, bool waitAll,
                                           std::uint32_t milliseconds) {
  const DWORD result = WaitForMultipleObjects(count, handles, waitAll, milliseconds);
  if (result == WAIT_FAILED) throw ExceptionWindows("WaitForMultipleObjects failed");
  if (result == WAIT_TIMEOUT) return -1;
  if (result >= WAIT_ABANDONED_0 && result < WAIT_ABANDONED_0 + count) {
    throw ExceptionBase("WaitForMultipleObjects is waiting for an abandonned mutex");
  }
  return static_cast<std::int32_t>(result);
}

// AutoHandle --------------------------------------------------------------------------------------------

void AutoHandle::Take(NativeHandle source) {
  Duplicate(source, DUPLICATE_SAME_ACCESS | DUPLICATE_CLOSE_SOURCE,
            "Failed to get a copy of the handle in AutoHandle::Take()");
}

void AutoHandle::Copy(NativeHandle source) {
  Duplicate(source, DUPLICATE_SAME_ACCESS, "Failed to get a copy of the handle in AutoHandle::Copy()");
}

void AutoHandle::Duplicate(NativeHandle source, std::uint32_t options, const char* failure) {
  Close();
  if (source == nullptr || source == INVALID_HANDLE_VALUE) return;
  HANDLE copy = nullptr;
  if (DuplicateHandle(GetCurrentProcess(), source, GetCurrentProcess(), &copy, 0, FALSE, options) == 0) {
    // Constructed and dropped on purpose: callers check IsValid, and some of them continue with an empty
    // owner. The text is visible in a debugger.
    const ExceptionWindows notRaised(failure);
    return;
  }
  handle = copy == nullptr ? INVALID_HANDLE_VALUE : copy;
}

void AutoHandle::Close() {
  if (!IsValid()) return;
  CloseHandle(handle);
  handle = INVALID_HANDLE_VALUE;
}

}  // namespace TamLogUtil
