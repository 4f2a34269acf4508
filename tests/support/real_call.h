#pragma once

// Support for tests that make calls of the operating system fail: the test executable defines the import
// pointer (`__imp_NAME`) of a call with a function of its own, which the linker then uses instead of the
// system library's; RealCall finds the system's own function for it. Windows only.
//
//   BOOL WINAPI FakeFlush(LPCVOID view, SIZE_T size) {
//     if (failFlush) { SetLastError(ERROR_IO_DEVICE); return FALSE; }
//     return TestSupport::RealCall<decltype(&FlushViewOfFile)>("kernel32", "FlushViewOfFile")(view, size);
//   }
//   extern "C" { decltype(&FlushViewOfFile) __imp_FlushViewOfFile = FakeFlush; }
//
// The C++ run-time's own calls use the same pointer, so a fake must not contain a function-local static.

#include "util/win32.h"

namespace TestSupport {

template <class Function>
Function RealCall(const char* module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA(module), name)));
}

}  // namespace TestSupport
