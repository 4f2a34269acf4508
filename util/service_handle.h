#pragma once

// Owns one handle of the service control manager, or none (null). Used by one thread.

#include "util/native_handle.h"
#include "util/unwind_check.h"

namespace TamLogUtil::Services {

class ServiceHandle {
 public:
  explicit ServiceHandle(NativeHandle owned = nullptr);
  // Closes the held handle; throws like Replace, unless the stack unwinds.
  ~ServiceHandle() noexcept(false);
  ServiceHandle(const ServiceHandle&) = delete;
  ServiceHandle& operator=(const ServiceHandle&) = delete;

  // Closes the held handle, then owns `next`, which may be null. ExceptionWindows "CloseServiceHandle()
  // failed:"; `next` is owned even then.
  void Replace(NativeHandle next);

  NativeHandle Get() const { return handle; }

 private:
  UnwindCheck unwindCheck;
  NativeHandle handle;
};

}  // namespace TamLogUtil::Services
