#include "util/exceptions.h"
#include "util/sync.h"

namespace TamLogUtil {

using Exceptions::ExceptionBase;

namespace {

struct ReleaseEvent {
  NativeHandle event;

  bool Wait(std::uint32_t milliseconds) const { return CheckedWaitForSingleObject(event, milliseconds); }
  // Tried twice: a lock that is not passed on stays taken forever.
  void Signal() const {
    try {
      CheckedSetEvent(event);
    } catch (const ExceptionBase&) {
      CheckedSetEvent(event);
    }
  }
};

}  // namespace

Mutex::Mutex() try : shared(false), handle(CheckedCreateEvent(nullptr, false, false, nullptr)) {
} catch (const ExceptionBase& cause) {
  throw ExceptionBase("Failed to create Mutex object", &cause);
}

Mutex::Mutex(const char* name, SecurityAttributes* attributes) try
    : shared(true), handle(CheckedCreateEvent(attributes, false, true, name)) {
} catch (const ExceptionBase& cause) {
  throw ExceptionBase("Failed to create Mutex object", &cause);
}

Mutex::~Mutex() {
  CloseQuietly(handle);
}

void Mutex::Wait(std::uint32_t milliseconds) NO_THREAD_SAFETY_ANALYSIS {
  TryWait(milliseconds);
}

bool Mutex::TryWait(std::uint32_t milliseconds) NO_THREAD_SAFETY_ANALYSIS {
  try {
    const ReleaseEvent event{handle};
    return shared ? event.Wait(milliseconds) : benaphore.Wait(event, milliseconds);
  } catch (const ExceptionBase& cause) {
    throw ExceptionBase("Failed to Wait for Mutex object", &cause);
  }
}

// Does not touch this object after another thread may have the lock: that thread may destroy it at once.
void Mutex::Release() NO_THREAD_SAFETY_ANALYSIS {
  try {
    if (shared) {
      CheckedSetEvent(handle);
    } else {
      benaphore.Release(ReleaseEvent{handle});
    }
  } catch (const ExceptionBase& cause) {
    throw ExceptionBase("Failed to RemoveSignal for Mutex object", &cause);
  }
}

}  // namespace TamLogUtil
