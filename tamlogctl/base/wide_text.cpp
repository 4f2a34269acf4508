#include "tamlogctl/base/wide_text.h"

#include <array>
#include <cwchar>

#include "client/message/win32.h"

namespace TamLogCtl {

namespace {

std::wstring ToWide(UINT codePage, std::string_view bytes) {
  const int size = static_cast<int>(bytes.size());
  std::wstring wide(bytes.size(), L'\0');  // no character has more units than bytes
  const int length = MultiByteToWideChar(codePage, 0, bytes.data(), size, wide.data(), size);
  wide.resize(static_cast<std::size_t>(length));
  return wide;
}

// `lossy` is null for UTF-8, which has every character.
std::string ToBytes(UINT codePage, DWORD flags, std::wstring_view wide, BOOL* lossy) {
  const int units = static_cast<int>(wide.size());
  std::string bytes(4 * wide.size(), '\0');
  const int length = WideCharToMultiByte(codePage, flags, wide.data(), units, bytes.data(),
                                         static_cast<int>(bytes.size()), nullptr, lossy);
  bytes.resize(static_cast<std::size_t>(length));
  return bytes;
}

// The system chooses the code page when it starts, from this value.
std::uint32_t ReadMachineCodePage() {
  std::array<wchar_t, 16> digits{};
  auto size = static_cast<DWORD>(sizeof(digits));
  if (RegGetValueW(HKEY_LOCAL_MACHINE, LR"(SYSTEM\CurrentControlSet\Control\Nls\CodePage)", L"ACP",
                   RRF_RT_REG_SZ, nullptr, digits.data(), &size) != ERROR_SUCCESS)
    return GetACP();
  const auto number = static_cast<std::uint32_t>(std::wcstoul(digits.data(), nullptr, 10));
  return IsValidCodePage(number) != FALSE ? number : GetACP();
}

}  // namespace

std::uint32_t MachineCodePage() {
  static const std::uint32_t codePage = ReadMachineCodePage();
  return codePage;
}

std::wstring Utf8ToWide(std::string_view utf8) {
  return ToWide(CP_UTF8, utf8);
}

std::string WideToUtf8(std::wstring_view wide) {
  return ToBytes(CP_UTF8, 0, wide, nullptr);
}

std::string AnsiToUtf8(std::string_view ansi) {
  return WideToUtf8(AnsiToWide(ansi));
}

std::wstring AnsiToWide(std::string_view ansi) {
  return ToWide(MachineCodePage(), ansi);
}

std::string WideToAnsi(std::wstring_view wide) {
  return ToBytes(MachineCodePage(), 0, wide, nullptr);
}

std::optional<std::string> Utf8ToAnsi(std::string_view utf8) {
  if (MachineCodePage() == CP_UTF8)
    return std::string(utf8);  // the query about lost characters is an error in UTF-8
  BOOL lossy = FALSE;
  std::string ansi = ToBytes(MachineCodePage(), WC_NO_BEST_FIT_CHARS, Utf8ToWide(utf8), &lossy);
  if (lossy != FALSE || (ansi.empty() && !utf8.empty())) return std::nullopt;
  return ansi;
}

}  // namespace TamLogCtl
