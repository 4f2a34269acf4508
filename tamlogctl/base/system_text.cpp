#include "tamlogctl/base/system_text.h"

#include <memory>

#include "client/message/win32.h"
#include "tamlogctl/base/wide_text.h"

namespace TamLogCtl {

std::string SystemText(std::uint32_t code) {
  constexpr DWORD kFlags =
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
  std::string number = "error " + std::to_string(code);
  wchar_t* buffer = nullptr;
  const DWORD length =
      FormatMessageW(kFlags, nullptr, code, 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
  const std::unique_ptr<wchar_t, decltype(&LocalFree)> owner(buffer, &LocalFree);
  if (length == 0 || buffer == nullptr) return number;
  std::string text = WideToUtf8(std::wstring_view(buffer, length));
  while (!text.empty() &&
         (text.back() == '\n' || text.back() == '\r' || text.back() == ' ' || text.back() == '.'))
    text.pop_back();
  return text.empty() ? number : text + " (" + number + ")";
}

}  // namespace TamLogCtl
