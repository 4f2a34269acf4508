#pragma once

// Owners of handles, events and locks, and checked wrappers of the system calls they make.
//
// Each Checked... function wraps one system call and throws ExceptionWindows with a short text naming it. The
// classes catch that and throw ExceptionBase with their own sentence and the caught one as its cause
// (util/exceptions.h).

#include <cstdint>
#include <optional>
#include <utility>

#include "util/benaphore.h"
#include "util/native_handle.h"
#include "util/thread_annotations.h"
#include "util/timeout.h"
#include "util/unwind_check.h"

namespace TamLogUtil {

// Closes the handle. "CloseHandle() failed:". Returns the call's non-zero result.
int CheckedCloseHandle(NativeHandle handle);
// Closes the handle and ignores failures.
void CloseQuietly(NativeHandle handle);
// Creates an event. "CreateEvent() failed". `attributes` and `name` may be null.
NativeHandle CheckedCreateEvent(SecurityAttributes* attributes, bool manualReset, bool initialState,
                                const char* name);
// Resets an event. "ResetEvent failed".
void CheckedResetEvent(NativeHandle handle);
// Signals an event. "SetEvent failed". Returns true.
bool CheckedSetEvent(NativeHandle handle);
// Waits for one object. "WaitForSingleObject failed" on a failed and on an abandoned wait. Returns false when
// the time ran out.
bool CheckedWaitForSingleObject(NativeHandle handle, std::uint32_t milliseconds);
// Sets `toSet`, then returns without waiting whether `wanted` is signalled, in one system call. Returns
// nothing when the call fails; then `toSet` was not set.
std::optional<bool> SetEventAndPoll(NativeHandle toSet, NativeHandle wanted);
// Returns -1 when the time ran out, otherwise the raw result. "WaitForMultipleObjects failed"; an abandoned
// object throws a plain ExceptionBase "WaitForMultipleObjects is waiting for an abandonned mutex".
std::int32_t CheckedWaitForMultipleObjects(std::uint32_t count, const NativeHandle* handles, bool waitAll,
                                           std::uint32_t milliseconds);

// Owns one handle, or none: then it holds the invalid-handle value, never null. A handle that cannot be
// duplicated leaves the owner empty without an error. Callers check IsValid before they wait, because the
// system takes the invalid-handle value for the process itself, and a wait for that never ends. One thread at
// a time.
class AutoHandle {
 public:
  enum class From { Take, Copy };

  AutoHandle();
  AutoHandle(NativeHandle source, From how);
  ~AutoHandle();
  AutoHandle(const AutoHandle&) = delete;
  AutoHandle& operator=(const AutoHandle&) = delete;

  // Does nothing when `source` is the held handle, otherwise Take.
  AutoHandle& operator=(NativeHandle source);

  // Closes the held handle, then keeps a duplicate of `source` and closes `source`.
  void Take(NativeHandle source);
  // Does the same, but `source` stays open.
  void Copy(NativeHandle source);
  void Swap(AutoHandle& other) { std::swap(handle, other.handle); }
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
  // Creates the event signalled, or opens an existing one of that name in its present state. "Failed to
  // create Event object".
  Event(const char* name, SecurityAttributes* attributes);
  // Throws "Failed to destroy Event object" when the handle cannot be closed, unless the stack unwinds.
  ~Event() noexcept(false);
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  // Returns true when signalled, false when the time ran out. "Failed to Wait for Event object".
  bool Wait(std::uint32_t milliseconds) const;
  // Signals the event. "Failed to SetSignal for Event object". Returns true.
  bool SetSignal();
  // Resets the event. "Failed to RemoveSignal for Event object".
  void RemoveSignal();

  NativeHandle Handle() const { return handle; }

 private:
  UnwindCheck unwindCheck;
  NativeHandle handle;
};

// A binary lock. Deliberately not a mutex object of the system: it has no owner, any thread may release it,
// releasing a free one leaves it free, and there is no abandoned state. Any thread may use it.
//
// A named one is an automatic-reset event (signalled = free), shared with other processes. An unnamed one is
// a benaphore: taking and releasing a free one makes no system call.
class CAPABILITY("mutex") Mutex {
 public:
  class Access;

  // Throws "Failed to create Mutex object" (both forms).
  Mutex();
  Mutex(const char* name, SecurityAttributes* attributes);
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  // Waits for the lock up to `milliseconds` and does not report whether it was taken. "Failed to Wait for
  // Mutex object".
  void Wait(std::uint32_t milliseconds) ACQUIRE();
  // Waits in the same way, but returns false when the time ran out and the lock was not taken.
  bool TryWait(std::uint32_t milliseconds) TRY_ACQUIRE(true);
  // Releases the lock. "Failed to RemoveSignal for Mutex object" (the text names the wrong operation, but
  // support staff search logs for it).
  void Release() RELEASE();

  // Returns the event. A wait for the event of a named lock, alone or together with other objects, takes the
  // lock.
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
// A finite time-out bounds the wait, after which the caller continues WITHOUT the lock: Acquire counts as
// owning in either case, and the release then frees a lock that another thread may hold. Callers rely on not
// getting a failure when the time runs out.
class SCOPED_CAPABILITY Mutex::Access {
 public:
  Access(Mutex& lockable, Timeout& timeout) ACQUIRE(lockable);
  // Null throws "Mutex Access object declared for null pointer".
  Access(Mutex* lockable, Timeout& timeout) ACQUIRE(lockable);
  // Releases the lock if it is owned; throws what Release throws.
  ~Access() noexcept(false) RELEASE();
  Access(const Access&) = delete;
  Access& operator=(const Access&) = delete;

  // Takes the lock. Throws "Mutex::Access requesting ownership of an owned object" when it already owns.
  void Acquire(Timeout& timeout) ACQUIRE();
  // Releases the lock. Throws "Mutex::Access releasing ownership of an unowned object" when it does not own.
  void Release() RELEASE();

 private:
  Mutex* mutex;
  bool owned = false;
};

}  // namespace TamLogUtil
