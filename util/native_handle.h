#pragma once

// The operating system's types as headers name them, so that no header needs windows.h.

#include <cstdint>

struct _SECURITY_ATTRIBUTES;

namespace TamLogUtil {

using NativeHandle = void*;
using SecurityAttributes = ::_SECURITY_ATTRIBUTES;

// The system's other value for "no handle", beside null: what opening a file returns when it fails.
inline NativeHandle InvalidHandle() {
  return reinterpret_cast<NativeHandle>(~std::uintptr_t{0});  // NOLINT(performance-no-int-to-ptr)
}

}  // namespace TamLogUtil
