#include "util/sync.h"

#include "util/exceptions.h"

namespace TamLogUtil {

using Exceptions::ExceptionBase;

// AutoHandle --------------------------------------------------------------------------------------------

AutoHandle::AutoHandle() : handle(InvalidHandle()) {}

AutoHandle::AutoHandle(NativeHandle source, From how) : AutoHandle() {
  if (how == From::Take) {
    Take(source);
  } else {
    Copy(source);
  }
}

AutoHandle::~AutoHandle() {
  Close();
}

AutoHandle& AutoHandle::operator=(NativeHandle source) {
  if (source != handle) Take(source);
  return *this;
}

bool AutoHandle::IsValid() const {
  return handle != InvalidHandle();
}

// Event -------------------------------------------------------------------------------------------------

Event::Event(const char* name, SecurityAttributes* attributes) try
    : handle(CheckedCreateEvent(attributes, true, true, name)) {
} catch (const ExceptionBase& cause) {
  throw ExceptionBase("Failed to create Event object", &cause);
}

Event::~Event() noexcept(false) {
  unwindCheck.Finish([this] {
    try {
      CheckedCloseHandle(handle);
    } catch (const ExceptionBase& cause) {
      throw ExceptionBase("Failed to destroy Event object", &cause);
    }
  });
}

bool Event::Wait(std::uint32_t milliseconds) const {
  try {
    return CheckedWaitForSingleObject(handle, milliseconds);
  } catch (const ExceptionBase& cause) {
    throw ExceptionBase("Failed to Wait for Event object", &cause);
  }
}

bool Event::SetSignal() {
  try {
    return CheckedSetEvent(handle);
  } catch (const ExceptionBase& cause) {
    throw ExceptionBase("Failed to SetSignal for Event object", &cause);
  }
}

void Event::RemoveSignal() {
  try {
    CheckedResetEvent(handle);
  } catch (const ExceptionBase& cause) {
    throw ExceptionBase("Failed to RemoveSignal for Event object", &cause);
  }
}

// Mutex::Access -----------------------------------------------------------------------------------------

Mutex::Access::Access(Mutex& lockable, Timeout& timeout) NO_THREAD_SAFETY_ANALYSIS : mutex(&lockable) {
  Acquire(timeout);
}

Mutex::Access::Access(Mutex* lockable, Timeout& timeout) NO_THREAD_SAFETY_ANALYSIS : mutex(lockable) {
  if (lockable == nullptr) throw ExceptionBase("Mutex Access object declared for null pointer");
  Acquire(timeout);
}

Mutex::Access::~Access() noexcept(false) {
  if (owned) Release();
}

void Mutex::Access::Acquire(Timeout& timeout) NO_THREAD_SAFETY_ANALYSIS {
  if (owned) throw ExceptionBase("Mutex::Access requesting ownership of an owned object");
  mutex->Wait(timeout.Remaining());
  // Also when the time ran out: see the class.
  owned = true;
}

void Mutex::Access::Release() NO_THREAD_SAFETY_ANALYSIS {
  if (!owned) throw ExceptionBase("Mutex::Access releasing ownership of an unowned object");
  mutex->Release();
  owned = false;
}

}  // namespace TamLogUtil
