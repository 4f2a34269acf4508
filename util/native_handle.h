#pragma once

// Names of operating system types for headers, so that no header needs windows.h.

#include <cstdint>

struct _SECURITY_ATTRIBUTES;

namespace TamLogUtil {

using NativeHandle = void*;
using SecurityAttributes = ::_SECURITY_ATTRIBUTES;

// Returns the system's second value for "no handle" besides null: opening a file returns it on failure.
inline NativeHandle InvalidHandle() {
  return reinterpret_cast<NativeHandle>(~std::uintptr_t{0});  // NOLINT(performance-no-int-to-ptr)
}

}  // namespace TamLogUtil
