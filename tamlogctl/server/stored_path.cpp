#include "tamlogctl/server/stored_path.h"

#include <algorithm>
#include <array>

#include "client/message/win32.h"

namespace TamLogCtl {

namespace {

constexpr char kServerKey[] = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server)";
constexpr char kPathValue[] = "LogFile";
constexpr std::uint32_t kDefaultCapacity = 50000;

}  // namespace

StoredPath ReadStoredPath() {
  StoredPath stored;
  std::array<char, 4096> text{};
  auto size = static_cast<DWORD>(text.size());
  stored.there = RegGetValueA(HKEY_LOCAL_MACHINE, kServerKey, kPathValue, RRF_RT_REG_SZ, nullptr, text.data(),
                              &size) == ERROR_SUCCESS;
  if (stored.there) stored.path = text.data();
  DWORD capacity = kDefaultCapacity;
  size = sizeof(capacity);
  if (RegGetValueA(HKEY_LOCAL_MACHINE, kServerKey, "MaxMessage", RRF_RT_REG_DWORD, nullptr, &capacity,
                   &size) != ERROR_SUCCESS)
    capacity = kDefaultCapacity;
  stored.capacity = capacity;
  return stored;
}

std::uint32_t WriteStoredPath(const std::string& path) {
  HKEY key = nullptr;
  LSTATUS result = RegCreateKeyExA(HKEY_LOCAL_MACHINE, kServerKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                   KEY_SET_VALUE, nullptr, &key, nullptr);
  if (result != ERROR_SUCCESS) return static_cast<std::uint32_t>(result);
  result = RegSetValueExA(key, kPathValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()),
                          static_cast<DWORD>(path.size() + 1));
  RegCloseKey(key);
  return static_cast<std::uint32_t>(result);
}

}  // namespace TamLogCtl
