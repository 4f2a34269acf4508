#include "tamlogctl/base/library_search.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "client/message/win32.h"

namespace {

std::wstring OwnDirectory() {
  std::wstring name(1024, L'\0');
  name.resize(GetModuleFileNameW(nullptr, name.data(), static_cast<DWORD>(name.size())));
  return name.substr(0, name.find_last_of(L'\\') + 1);
}

bool Loads(const wchar_t* name) {
  const HMODULE module = LoadLibraryW(name);
  if (module != nullptr) FreeLibrary(module);
  return module != nullptr;
}

// The directory of the program comes first in the system's own order.
TEST(LibrarySearch, LibraryNextToTheProgramIsNotLoaded) {
  constexpr wchar_t kPlanted[] = L"planted-library.dll";
  std::wstring system(MAX_PATH, L'\0');
  system.resize(GetSystemDirectoryW(system.data(), MAX_PATH));
  const std::wstring target = OwnDirectory() + kPlanted;
  ASSERT_NE(CopyFileW((system + L"\\version.dll").c_str(), target.c_str(), FALSE), 0);
  EXPECT_TRUE(Loads(kPlanted));
  TamLogCtl::LoadLibrariesOfTheSystemOnly();
  EXPECT_FALSE(Loads(kPlanted));
  EXPECT_TRUE(Loads(L"version.dll"));
  DeleteFileW(target.c_str());
}

}  // namespace
