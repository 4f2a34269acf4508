#include "client/message/win32.h"
#include "tamlogctl/base/library_search.h"

namespace TamLogCtl {

void LoadLibrariesOfTheSystemOnly() {
  using SetDirectories = BOOL(WINAPI*)(DWORD);
  constexpr DWORD kSystemDirectory = 0x800;
  const auto set = reinterpret_cast<SetDirectories>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetDefaultDllDirectories")));
  if (set != nullptr) set(kSystemDirectory);
}

}  // namespace TamLogCtl
