// Events and handles: the native counterpart of util/system_handles.cpp.

#include "tests/native/handles.h"

#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "tests/native/machine.h"
#include "util/clock.h"
#include "util/exceptions.h"
#include "util/sync.h"
#include "util/timeout.h"

namespace {

using NativeMachine::EventObject;
using TamLogUtil::NativeHandle;
using TamLogUtil::Exceptions::ExceptionWindows;

constexpr std::uint32_t kInvalidHandleError = 6;

struct NamedEvents {
  std::mutex lock;
  std::map<std::string, std::weak_ptr<EventObject>> events;
};

NamedEvents& Named() {
  static NamedEvents named;
  return named;
}

using Handle = std::shared_ptr<NativeMachine::Object>;

bool IsNone(NativeHandle handle) {
  return handle == nullptr || handle == TamLogUtil::InvalidHandle();
}

std::shared_ptr<EventObject> OpenOrCreate(bool manualReset, bool initialState, const char* name) {
  if (name == nullptr) return std::make_shared<EventObject>(manualReset, initialState);
  NamedEvents& named = Named();
  const std::lock_guard guard(named.lock);
  std::weak_ptr<EventObject>& known = named.events[name];
  auto event = known.lock();
  if (event == nullptr) {
    event = std::make_shared<EventObject>(manualReset, initialState);
    known = event;
  }
  return event;
}

std::int32_t FindSignalled(std::uint32_t count, const NativeHandle* handles) {
  for (std::uint32_t i = 0; i < count; ++i) {
    if (NativeMachine::ObjectOf(handles[i])->TakeSignal()) return static_cast<std::int32_t>(i);
  }
  return -1;
}

// Waits by polling: yields at first, then sleeps 50 microseconds, which is long for a processor and short for
// a test.
std::int32_t WaitByLooking(std::uint32_t count, const NativeHandle* handles, std::uint32_t milliseconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  for (int looks = 0;; ++looks) {
    const std::int32_t found = FindSignalled(count, handles);
    if (found >= 0) return found;
    if (milliseconds != TamLogUtil::Timeout::kForever && std::chrono::steady_clock::now() >= end) return -1;
    if (looks < 50) {
      std::this_thread::yield();
    } else {
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  }
}

}  // namespace

namespace NativeMachine {

NativeHandle NewHandle(std::shared_ptr<Object> object) {
  return new Handle(std::move(object));
}

const std::shared_ptr<Object>& ObjectOf(NativeHandle handle) {
  return *static_cast<const Handle*>(handle);
}

std::int32_t WaitForOne(std::uint32_t count, const NativeHandle* handles, std::uint32_t milliseconds) {
  if (!StandsStill()) return WaitByLooking(count, handles, milliseconds);
  const std::int32_t found = FindSignalled(count, handles);
  if (found >= 0) return found;
  if (milliseconds == TamLogUtil::Timeout::kForever) std::abort();
  TamLogUtil::SleepFor(milliseconds);
  return -1;
}

}  // namespace NativeMachine

namespace TamLogUtil {

int CheckedCloseHandle(NativeHandle handle) {
  if (IsNone(handle)) {
    NativeMachine::SetLastError(kInvalidHandleError);
    throw ExceptionWindows("CloseHandle() failed:");
  }
  delete static_cast<Handle*>(handle);
  return 1;
}

void CloseQuietly(NativeHandle handle) {
  if (!IsNone(handle)) delete static_cast<Handle*>(handle);
}

NativeHandle CheckedCreateEvent(SecurityAttributes* /*attributes*/, bool manualReset, bool initialState,
                                const char* name) {
  return NativeMachine::NewHandle(OpenOrCreate(manualReset, initialState, name));
}

void CheckedResetEvent(NativeHandle handle) {
  NativeMachine::As<EventObject>(handle).signalled.store(false, std::memory_order_release);
}

bool CheckedSetEvent(NativeHandle handle) {
  // Kept alive beyond the store: the thread that it lets through may close the handle.
  const Handle object = NativeMachine::ObjectOf(handle);
  dynamic_cast<EventObject&>(*object).signalled.store(true, std::memory_order_release);
  return true;
}

bool CheckedWaitForSingleObject(NativeHandle handle, std::uint32_t milliseconds) {
  return NativeMachine::WaitForOne(1, &handle, milliseconds) == 0;
}

std::optional<bool> SetEventAndPoll(NativeHandle toSet, NativeHandle wanted) {
  CheckedSetEvent(toSet);
  return CheckedWaitForSingleObject(wanted, 0);
}

// The server never waits for all of several objects.
std::int32_t CheckedWaitForMultipleObjects(std::uint32_t count, const NativeHandle* handles, bool waitAll,
                                           std::uint32_t milliseconds) {
  if (waitAll) std::abort();
  return NativeMachine::WaitForOne(count, handles, milliseconds);
}

void AutoHandle::Take(NativeHandle source) {
  Copy(source);
  CloseQuietly(source);
}

void AutoHandle::Copy(NativeHandle source) {
  Close();
  if (!IsNone(source)) handle = NativeMachine::NewHandle(NativeMachine::ObjectOf(source));
}

void AutoHandle::Close() {
  CloseQuietly(handle);
  handle = InvalidHandle();
}

}  // namespace TamLogUtil
