#include "tamlogctl/server/stored_path.h"

#include <algorithm>
#include <array>

#include "client/message/win32.h"
#include "tamlogctl/base/wide_text.h"

namespace TamLogCtl {

namespace {

constexpr wchar_t kServerKey[] = LR"(SOFTWARE\Brenmark VORTA\Torvane Log Server)";
constexpr wchar_t kPathValue[] = L"LogFile";
constexpr std::uint32_t kDefaultCapacity = 50000;

}  // namespace

StoredPath ReadStoredPath() {
  StoredPath stored;
  std::array<wchar_t, 4096> text{};
  auto size = static_cast<DWORD>(sizeof(text));
  stored.there = RegGetValueW(HKEY_LOCAL_MACHINE, kServerKey, kPathValue, RRF_RT_REG_SZ, nullptr, text.data(),
                              &size) == ERROR_SUCCESS;
  if (stored.there) stored.path = WideToAnsi(text.data());
  DWORD capacity = kDefaultCapacity;
  size = sizeof(capacity);
  if (RegGetValueW(HKEY_LOCAL_MACHINE, kServerKey, L"MaxMessage", RRF_RT_REG_DWORD, nullptr, &capacity,
                   &size) != ERROR_SUCCESS)
    capacity = kDefaultCapacity;
  stored.capacity = capacity;
  return stored;
}

std::uint32_t WriteStoredPath(const std::string& path) {
  HKEY key = nullptr;
  LSTATUS result = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kServerKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                   KEY_SET_VALUE, nullptr, &key, nullptr);
  if (result != ERROR_SUCCESS) return static_cast<std::uint32_t>(result);
  const std::wstring text = AnsiToWide(path);
  result = RegSetValueExW(key, kPathValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  RegCloseKey(key);
  return static_cast<std::uint32_t>(result);
}

}  // namespace TamLogCtl
