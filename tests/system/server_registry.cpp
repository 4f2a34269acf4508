#include "tests/system/server_registry.h"

#include <array>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "util/win32.h"

namespace {

constexpr const char* kMakerKey = R"(SOFTWARE\Brenmark VORTA)";
constexpr const char* kServerKey = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server)";
constexpr const char* kFiltersKey = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server\Filters)";

struct KeyCloser {
  void operator()(HKEY key) const { RegCloseKey(key); }
};
using Key = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;

void Check(LSTATUS result, const std::string& doing) {
  if (result != ERROR_SUCCESS) {
    throw std::runtime_error(doing + " failed with error " + std::to_string(result));
  }
}

Key Create(const char* path) {
  HKEY key = nullptr;
  Check(
      RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &key, nullptr),
      std::string("creating the key ") + path);
  return Key(key);
}

// Returns null when the key does not exist.
Key Open(const char* path) {
  HKEY key = nullptr;
  const LSTATUS result = RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key);
  if (result == ERROR_FILE_NOT_FOUND) return nullptr;
  Check(result, std::string("opening the key ") + path);
  return Key(key);
}

void WriteText(const char* path, const std::string& value, const std::string& text) {
  Check(RegSetValueExA(Create(path).get(), value.c_str(), 0, REG_SZ,
                       reinterpret_cast<const BYTE*>(text.c_str()), static_cast<DWORD>(text.size() + 1)),
        "writing " + value);
}

}  // namespace

void ServerRegistry::Delete() {
  for (const char* path : {kFiltersKey, kServerKey, kMakerKey}) {
    const LSTATUS result = RegDeleteKeyA(HKEY_LOCAL_MACHINE, path);
    if (result != ERROR_FILE_NOT_FOUND) Check(result, std::string("deleting the key ") + path);
  }
}

bool ServerRegistry::Exists() {
  return Open(kServerKey) != nullptr;
}

void ServerRegistry::Write(const std::string& value, std::uint32_t number) {
  std::array<BYTE, 4> bytes{static_cast<BYTE>(number), static_cast<BYTE>(number >> 8U),
                            static_cast<BYTE>(number >> 16U), static_cast<BYTE>(number >> 24U)};
  Check(RegSetValueExA(Create(kServerKey).get(), value.c_str(), 0, REG_DWORD, bytes.data(), 4),
        "writing " + value);
}

void ServerRegistry::Write(const std::string& value, const std::string& text) {
  WriteText(kServerKey, value, text);
}

void ServerRegistry::WriteFilter(const std::string& value, const std::string& kindAndText) {
  WriteText(kFiltersKey, value, kindAndText);
}

std::optional<std::uint32_t> ServerRegistry::Number(const std::string& value) {
  const Key key = Open(kServerKey);
  std::array<BYTE, 4> bytes{};
  DWORD size = sizeof(bytes);
  DWORD type = 0;
  if (!key ||
      RegQueryValueExA(key.get(), value.c_str(), nullptr, &type, bytes.data(), &size) != ERROR_SUCCESS ||
      type != REG_DWORD) {
    return std::nullopt;
  }
  return std::uint32_t{bytes[0]} | (std::uint32_t{bytes[1]} << 8U) | (std::uint32_t{bytes[2]} << 16U) |
         (std::uint32_t{bytes[3]} << 24U);
}

std::optional<std::string> ServerRegistry::Text(const std::string& value) {
  const Key key = Open(kServerKey);
  std::array<char, 2048> text{};
  DWORD size = text.size() - 1;
  DWORD type = 0;
  if (!key ||
      RegQueryValueExA(key.get(), value.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(text.data()),
                       &size) != ERROR_SUCCESS ||
      type != REG_SZ) {
    return std::nullopt;
  }
  return std::string(text.data());
}

std::optional<std::map<std::string, std::string>> ServerRegistry::Filters() {
  const Key key = Open(kFiltersKey);
  if (!key) return std::nullopt;
  std::map<std::string, std::string> filters;
  for (DWORD index = 0;; ++index) {
    std::array<char, 256> name{};
    std::array<char, 2048> data{};
    DWORD nameSize = name.size();
    DWORD dataSize = data.size() - 1;
    const LSTATUS result = RegEnumValueA(key.get(), index, name.data(), &nameSize, nullptr, nullptr,
                                         reinterpret_cast<BYTE*>(data.data()), &dataSize);
    if (result == ERROR_NO_MORE_ITEMS) return filters;
    Check(result, "reading the filters");
    filters[name.data()] = data.data();
  }
}
