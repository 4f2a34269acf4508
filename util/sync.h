#pragma once

// Owning wrappers over handles, events and waits on which every thread, timer and shared-file operation
// rests.
//
// Each Checked... function wraps one system call and throws ExceptionWindows with a short text naming it. The
// classes catch that and throw ExceptionBase with a sentence of their own, the caught one as its cause
// (util/exceptions.h).

#include <cstdint>
#include <optional>

#include "util/benaphore.h"
#include "util/native_handle.h"
#include "util/thread_annotations.h"
#include "util/timeout.h"
#include "util/unwind_check.h"

namespace TamLogUtil {

// "CloseHandle() failed:". Returns the call's non-zero result.
int CheckedCloseHandle(NativeHandle handle);
// A failure is ignored.
void CloseQuietly(NativeHandle handle);
// "CreateEvent() failed". `attributes` and `name` may be null.
NativeHandle CheckedCreateEvent(SecurityAttributes* attributes, bool manualReset, bool initialState,
                                const char* name);
// "ResetEvent failed".
void CheckedResetEvent(NativeHandle handle);
// "SetEvent failed". Returns true.
bool CheckedSetEvent(NativeHandle handle);
// "WaitForSingleObject failed" on a failed and on an abandoned wait. False when the time ran out.
bool CheckedWaitForSingleObject(NativeHandle handle, std::uint32_t milliseconds);
// Sets `toSet`, then looks at `wanted` without waiting, in one call into the system: whether it was
// signalled. Nothing when the call fails; then nothing was set.
std::optional<bool> SetEventAndLook(NativeHandle toSet, NativeHandle wanted);
// -1 when the time ran out, otherwise the raw result. "WaitForMultipleObjects failed"; an abandoned object
// throws a plain ExceptionBase "WaitForMultipleObjects is waiting for an abandonned mutex".
std::int32_t CheckedWaitForMultipleObjects(std::uint32_t count, const NativeHandle* handles, bool waitAll,
                                           std::uint32_t milliseconds);

// Owns one handle. Holding none is shown by the invalid-handle value; a null handle is never stored. A handle
// that cannot be duplicated leaves the owner empty without an error: callers look at IsValid before they
// wait, for the invalid-handle value means the process itself to the system, and a wait for it never ends.
// One thread at a time.
class AutoHandle {
 public:
  enum class From { Take, Copy };

  AutoHandle();
  AutoHandle(NativeHandle source, From how);
  ~AutoHandle();
  AutoHandle(const AutoHandle&) = delete;
  AutoHandle& operator=(const AutoHandle&) = delete;

  // Nothing when the value is the one held already; otherwise Take.
  AutoHandle& operator=(NativeHandle source);

  // Closes what is held, then keeps a duplicate of `source` and closes `source` itself.
  void Take(NativeHandle source);
  // The same, but `source` stays open.
  void Copy(NativeHandle source);
  void Close();

  bool IsValid() const;
  bool IsInvalid() const { return !IsValid(); }
  NativeHandle Get() const { return handle; }

 private:
  void Duplicate(NativeHandle source, std::uint32_t options, const char* failure);

  NativeHandle handle;
};

// A manual-reset event, named (shared with other processes) or unnamed. Any thread may use it.
class Event {
 public:
  // Created signalled; an existing object of that name is opened as it is. "Failed to create Event object".
  Event(const char* name, SecurityAttributes* attributes);
  // Throws "Failed to destroy Event object" when the handle cannot be closed, unless the stack unwinds.
  ~Event() noexcept(false);
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  // True when signalled, false when the time ran out. "Failed to Wait for Event object".
  bool Wait(std::uint32_t milliseconds) const;
  // "Failed to SetSignal for Event object". Returns true.
  bool SetSignal();
  // "Failed to RemoveSignal for Event object".
  void RemoveSignal();

  NativeHandle Handle() const { return handle; }

 private:
  UnwindCheck unwindCheck;
  NativeHandle handle;
};

// A binary lock. Deliberately not a mutex object of the system: it belongs to no thread, any thread may give
// it back, giving back a free one leaves it free, and there is no abandoned state. Any thread may use it.
//
// A named one is an automatic-reset event (signalled = free) that any process may use. An unnamed one is a
// word in memory and an event for those who have to wait: taking and giving back a free one is no call into
// the system.
class CAPABILITY("mutex") Mutex {
 public:
  class Access;

  // "Failed to create Mutex object" (both forms).
  Mutex();
  Mutex(const char* name, SecurityAttributes* attributes);
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  // Waits for the lock; whether it came in time is not told. "Failed to Wait for Mutex object".
  void Wait(std::uint32_t milliseconds) ACQUIRE();
  // The same, but tells: false when the time ran out, and the lock is another's.
  bool TryWait(std::uint32_t milliseconds) TRY_ACQUIRE(true);
  // Frees the lock. "Failed to RemoveSignal for Mutex object" (the text names the wrong operation; log
  // searches of support staff know it so).
  void Release() RELEASE();

  // The event. Of a named lock it may be waited for together with others, which takes the lock.
  NativeHandle Handle() const { return handle; }

 private:
  const bool shared;
  Benaphore benaphore;  // of an unnamed one
  NativeHandle handle;
};

// Scoped owner of a Mutex, used by one thread.
//
//   Mutex::Access access(configLock, Timeout::Infinite);
//
// A finite time-out bounds how long to wait before going on WITHOUT the lock: Acquire owns afterwards in
// either case, and its release then frees a lock that another may hold. Callers rely on never being told that
// the wait ran out.
class SCOPED_CAPABILITY Mutex::Access {
 public:
  Access(Mutex& lockable, Timeout& timeout) ACQUIRE(lockable);
  // Null throws "Mutex Access object declared for null pointer".
  Access(Mutex* lockable, Timeout& timeout) ACQUIRE(lockable);
  // Gives the lock back when it is owned; throws what Release throws.
  ~Access() noexcept(false) RELEASE();
  Access(const Access&) = delete;
  Access& operator=(const Access&) = delete;

  // "Mutex::Access requesting ownership of an owned object" when it owns already.
  void Acquire(Timeout& timeout) ACQUIRE();
  // "Mutex::Access releasing ownership of an unowned object" when it does not own.
  void Release() RELEASE();

 private:
  Mutex* mutex;
  bool owned = false;
};

}  // namespace TamLogUtil
