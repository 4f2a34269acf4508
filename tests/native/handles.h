#pragma once

// The objects behind the handles of the machine in memory (tests/native/machine.h). Each handle is an
// allocation of its own, so a handle that is closed twice or used after it was closed is found by
// AddressSanitizer.

#include <atomic>
#include <cstdint>
#include <memory>

#include "util/native_handle.h"

namespace NativeMachine {

struct Object {
  virtual ~Object() = default;
  // Returns whether the object is signalled, and consumes the signal if requested.
  virtual bool TakeSignal() { return true; }
};

struct EventObject final : Object {
  EventObject(bool manual, bool initial) : manualReset(manual), signalled(initial) {}
  bool TakeSignal() override {
    return manualReset ? signalled.load(std::memory_order_acquire)
                       : signalled.exchange(false, std::memory_order_acq_rel);
  }

  const bool manualReset;
  std::atomic<bool> signalled;
};

TamLogUtil::NativeHandle NewHandle(std::shared_ptr<Object> object);
const std::shared_ptr<Object>& ObjectOf(TamLogUtil::NativeHandle handle);

template <class Kind>
Kind& As(TamLogUtil::NativeHandle handle) {
  return dynamic_cast<Kind&>(*ObjectOf(handle));
}

// Returns the index of the signalled object, or -1 when the time ran out (0xFFFFFFFF: never).
std::int32_t WaitForOne(std::uint32_t count, const TamLogUtil::NativeHandle* handles,
                        std::uint32_t milliseconds);

// The calling thread's last error.
void SetLastError(std::uint32_t error);

bool StandsStill();

}  // namespace NativeMachine
