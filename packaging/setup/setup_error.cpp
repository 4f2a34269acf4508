#include "packaging/setup/setup_error.h"

#include <fcntl.h>
#include <io.h>

#include <cstdint>
#include <cstdio>
#include <memory>

#include "client/message/win32.h"

namespace TamLogSetup {

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
File logFile(nullptr, &std::fclose);

}  // namespace

std::string Utf8(const std::wstring& text) {
  const int units = static_cast<int>(text.size());
  std::string bytes(3 * text.size(), '\0');
  const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, bytes.data(),
                                         static_cast<int>(bytes.size()), nullptr, nullptr);
  bytes.resize(static_cast<std::size_t>(length));
  return bytes;
}

void Fail(const std::string& what, unsigned long error) {
  wchar_t* buffer = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
      error, 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
  const std::unique_ptr<wchar_t, decltype(&LocalFree)> owner(buffer, &LocalFree);
  std::string text = length > 0 ? Utf8(std::wstring(buffer, length)) : "";
  while (!text.empty() && (text.back() == '\r' || text.back() == '\n' || text.back() == '.')) text.pop_back();
  throw SetupError(what + ": " + text + (text.empty() ? "" : " ") + "(error " + std::to_string(error) + ")");
}

void FailLast(const std::string& what) {
  const DWORD error = GetLastError();
  Fail(what, error);
}

void Say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  static_cast<void>(std::fflush(stdout));
  if (!logFile) return;
  SYSTEMTIME now{};
  GetLocalTime(&now);
  // A log that cannot be written, for example on a full disk, does not stop a step.
  static_cast<void>(std::fprintf(logFile.get(), "%04u-%02u-%02u %02u:%02u:%02u  %s\n", now.wYear, now.wMonth,
                                 now.wDay, now.wHour, now.wMinute, now.wSecond, line.c_str()));
  static_cast<void>(std::fflush(logFile.get()));
}

void OpenLog(const std::wstring& path) {
  const HANDLE handle =
      CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (handle == INVALID_HANDLE_VALUE) FailLast("cannot open " + Utf8(path));
  const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(handle), _O_APPEND);
  logFile.reset(_fdopen(descriptor, "a"));
  // With the rights of an administrator, a link would let another user choose the file.
  BY_HANDLE_FILE_INFORMATION info{};
  if (GetFileInformationByHandle(handle, &info) == FALSE || info.nNumberOfLinks > 1 ||
      (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    logFile.reset();
    throw SetupError(Utf8(path) + " is a link; choose another file for the log");
  }
}

}  // namespace TamLogSetup
