#include "tamlogctl/server/diagnostic_file.h"

#include <algorithm>
#include <array>

#include "client/live/handle.h"
#include "client/message/win32.h"
#include "tamlogctl/base/wide_text.h"
#include "tamlogctl/server/log_path.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Handle;

constexpr std::uint64_t kMostBytes = 65536;

std::wstring NewerOf(const std::wstring& left, const std::wstring& right) {
  const auto written = [](const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == FALSE) return std::uint64_t{0};
    return (std::uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32U) | data.ftLastWriteTime.dwLowDateTime;
  };
  return written(left) >= written(right) ? left : right;
}

// Services start in the system directory; compatible systems use the one above it.
std::wstring PathOfLog() {
  std::array<wchar_t, MAX_PATH> system{};
  std::array<wchar_t, MAX_PATH> windows{};
  GetSystemDirectoryW(system.data(), static_cast<UINT>(system.size()));
  GetWindowsDirectoryW(windows.data(), static_cast<UINT>(windows.size()));
  const std::wstring name(kDiagnosticFileName.begin(), kDiagnosticFileName.end());
  return NewerOf(std::wstring(system.data()) + L"\\" + name, std::wstring(windows.data()) + L"\\" + name);
}

}  // namespace

DiagnosticFile ReadDiagnosticFile() {
  DiagnosticFile found;
  const std::wstring path = PathOfLog();
  const Handle file(CreateFileW(path.c_str(), GENERIC_READ,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  LARGE_INTEGER size{};
  if (!file || GetFileSizeEx(file.Get(), &size) == FALSE) return found;
  found.path = WideToUtf8(path);
  found.bytes = static_cast<std::uint64_t>(size.QuadPart);
  std::string bytes(std::min(found.bytes, kMostBytes), '\0');
  LARGE_INTEGER start{};
  start.QuadPart = size.QuadPart - static_cast<LONGLONG>(bytes.size());
  DWORD read = 0;
  if (SetFilePointerEx(file.Get(), start, nullptr, FILE_BEGIN) == FALSE ||
      ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) == FALSE)
    return found;
  bytes.resize(read);
  found.last = ParseDiagnostics(AnsiToUtf8(bytes));
  return found;
}

}  // namespace TamLogCtl
