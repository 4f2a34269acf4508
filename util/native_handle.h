#pragma once

// The operating system's types as headers name them, so that no header needs windows.h.

struct _SECURITY_ATTRIBUTES;

namespace TamLogUtil {

using NativeHandle = void*;
using SecurityAttributes = ::_SECURITY_ATTRIBUTES;

}  // namespace TamLogUtil
