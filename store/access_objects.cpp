#include "store/access_objects.h"

#include <array>

#include "store/with_context.h"
#include "util/exceptions.h"
#include "util/timeout.h"

namespace TamLogUtil {

using Exceptions::ExceptionBase;

WaitOutcome WaitUnlessClosed(NativeHandle wanted, NativeHandle closing, std::uint32_t milliseconds) {
  // The lowest signalled index wins, so `wanted` comes first.
  const std::array<NativeHandle, 2> handles = {wanted, closing};
  const std::uint32_t count = closing == nullptr ? 1 : 2;
  switch (CheckedWaitForMultipleObjects(count, handles.data(), false, milliseconds)) {
    case -1:
      return WaitOutcome::TimedOut;
    case 0:
      return WaitOutcome::Signalled;
    default:
      return WaitOutcome::Closed;
  }
}

AccessObjects::AccessObjects(const std::string& headerLockName, const std::string& readWaitName,
                             const std::string& writeWaitName, SecurityAttributes* attributes)
    : closing(new Event(nullptr, nullptr)),
      headerLock(headerLockName.c_str(), attributes),
      readWait(new Event(readWaitName.c_str(), attributes)),
      writeWait(new Event(writeWaitName.c_str(), attributes)) {
  closing->RemoveSignal();
}

void AccessObjects::DestroyQuietly::operator()(Event* event) const noexcept {
  try {
    delete event;
  } catch (
      const ExceptionBase&) {  // NOLINT(bugprone-empty-catch): the memory is freed, the handle is past help
  }
}

WaitOutcome AccessObjects::TakeHeaderLock(std::uint32_t milliseconds) const {
  return WithContext("Failed to Wait for Mutex object",
                     [&] { return WaitUnlessClosed(headerLock.Handle(), closing->Handle(), milliseconds); });
}

// The analysis does not see that the lock was taken, by a wait for two objects in another function.
void AccessObjects::ReleaseHeaderLock() NO_THREAD_SAFETY_ANALYSIS {
  headerLock.Release();
}

WaitOutcome AccessObjects::WaitForReadWait(std::uint32_t milliseconds) const {
  return WaitFor(*readWait, milliseconds);
}

// The single call cannot wait for `closing` too, so it only polls. When it fails, the two separate calls
// report which of them failed.
WaitOutcome AccessObjects::ReleaseHeaderLockAndWaitForReadWait(std::uint32_t milliseconds) {
  const auto seen = SetEventAndPoll(headerLock.Handle(), readWait->Handle());
  if (seen == true) return WaitOutcome::Signalled;
  if (!seen) ReleaseHeaderLock();
  return WaitForReadWait(milliseconds);
}

WaitOutcome AccessObjects::WaitForWriteWait(std::uint32_t milliseconds) const {
  return WaitFor(*writeWait, milliseconds);
}

WaitOutcome AccessObjects::WaitFor(const Event& event, std::uint32_t milliseconds) const {
  return WithContext("Failed to Wait for Event object",
                     [&] { return WaitUnlessClosed(event.Handle(), closing->Handle(), milliseconds); });
}

HeaderLock::HeaderLock(AccessObjects& accessObjects, const char* closedText) : objects(accessObjects) {
  if (objects.TakeHeaderLock(Timeout::kForever) != WaitOutcome::Signalled) throw ExceptionBase(closedText);
}

HeaderLock::~HeaderLock() noexcept(false) {
  unwindCheck.Finish([this] { objects.ReleaseHeaderLock(); });
}

}  // namespace TamLogUtil
