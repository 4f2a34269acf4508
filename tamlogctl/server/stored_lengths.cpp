#include "tamlogctl/server/stored_lengths.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "client/message/win32.h"

namespace TamLogCtl {

namespace {

constexpr char kServerKey[] = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server)";
constexpr char kFiltersKey[] = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server\Filters)";

class Key {
 public:
  explicit Key(const char* path) {
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) != ERROR_SUCCESS) key = nullptr;
  }
  ~Key() {
    if (key != nullptr) RegCloseKey(key);
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  HKEY Get() const { return key; }

 private:
  HKEY key = nullptr;
};

std::size_t LengthOfText(const char* bytes, DWORD size) {
  const std::string_view whole(bytes, size);
  return std::min(whole.find('\0'), whole.size());
}

std::size_t LongestFilter() {
  const Key key(kFiltersKey);
  std::size_t longest = 0;
  std::array<char, 256> name{};
  std::array<char, 4096> data{};
  for (DWORD index = 0; key.Get() != nullptr; ++index) {
    auto nameSize = static_cast<DWORD>(name.size());
    auto size = static_cast<DWORD>(data.size());
    const LSTATUS result = RegEnumValueA(key.Get(), index, name.data(), &nameSize, nullptr, nullptr,
                                         reinterpret_cast<BYTE*>(data.data()), &size);
    if (result != ERROR_SUCCESS) break;
    // The first letter is the filter's kind.
    const std::size_t length = LengthOfText(data.data(), size);
    longest = std::max(longest, length > 0 ? length - 1 : 0);
  }
  return longest;
}

std::size_t PathLength() {
  const Key key(kServerKey);
  std::array<char, 4096> data{};
  auto size = static_cast<DWORD>(data.size());
  if (key.Get() == nullptr || RegQueryValueExA(key.Get(), "LogFile", nullptr, nullptr,
                                               reinterpret_cast<BYTE*>(data.data()), &size) != ERROR_SUCCESS)
    return 0;
  return LengthOfText(data.data(), size);
}

}  // namespace

StoredLengths ReadStoredLengths() {
  return {LongestFilter(), PathLength()};
}

}  // namespace TamLogCtl
