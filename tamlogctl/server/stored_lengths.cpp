#include "tamlogctl/server/stored_lengths.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "client/message/win32.h"
#include "tamlogctl/base/wide_text.h"

namespace TamLogCtl {

namespace {

constexpr wchar_t kServerKey[] = LR"(SOFTWARE\Brenmark VORTA\Torvane Log Server)";
constexpr wchar_t kFiltersKey[] = LR"(SOFTWARE\Brenmark VORTA\Torvane Log Server\Filters)";

class Key {
 public:
  explicit Key(const wchar_t* path) {
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) != ERROR_SUCCESS) key = nullptr;
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

// Returns the length in bytes of the machine's code page, in which the server reads the text.
std::size_t LengthOfText(const wchar_t* text, DWORD bytes) {
  const std::wstring_view whole(text, bytes / sizeof(wchar_t));
  return WideToAnsi(whole.substr(0, whole.find(L'\0'))).size();
}

std::size_t LongestFilter() {
  const Key key(kFiltersKey);
  std::size_t longest = 0;
  std::array<wchar_t, 256> name{};
  std::array<wchar_t, 4096> data{};
  for (DWORD index = 0; key.Get() != nullptr; ++index) {
    auto nameSize = static_cast<DWORD>(name.size());
    auto size = static_cast<DWORD>(sizeof(data));
    const LSTATUS result = RegEnumValueW(key.Get(), index, name.data(), &nameSize, nullptr, nullptr,
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
  std::array<wchar_t, 4096> data{};
  auto size = static_cast<DWORD>(sizeof(data));
  if (key.Get() == nullptr || RegQueryValueExW(key.Get(), L"LogFile", nullptr, nullptr,
                                               reinterpret_cast<BYTE*>(data.data()), &size) != ERROR_SUCCESS)
    return 0;
  return LengthOfText(data.data(), size);
}

}  // namespace

StoredLengths ReadStoredLengths() {
  return {LongestFilter(), PathLength()};
}

}  // namespace TamLogCtl
