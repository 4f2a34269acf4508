// The system calls of MessageFileServer: opens or creates the file, resizes it, waits until no other process
// has it open.

#include <optional>

#include "store/file_alone.h"
#include "store/message_file_server.h"
#include "util/exceptions.h"
#include "util/win32.h"

using TamLogUtil::AutoHandle;
using TamLogUtil::Mutex;
using TamLogUtil::Timeout;
using TamLogUtil::Exceptions::ExceptionWindows;

namespace {

// Tries the configured file. Returns the system's error, or nothing when the time for the lock ran out:
// unlike Mutex::Access this neither continues without the lock, because its holder may be changing the path,
// nor releases the lock of another thread.
std::optional<DWORD> OpenAlone(const ServerConfiguration& configuration, Mutex& configLock,
                               Timeout& timeout) {
  if (!configLock.TryWait(timeout.Remaining())) return std::nullopt;
  const DWORD error = OpenFileAlone(configuration.logFile);
  configLock.Release();
  return error;
}

}  // namespace

// Opens or creates the file. Returns whether it existed.
bool MessageFileServer::OpenLogFile(const std::string& path, std::uint32_t& lowFileSize) {
  const HANDLE opened =
      CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  // Before anything else runs: it also reports whether the file existed when the open succeeds.
  const DWORD error = GetLastError();
  if (opened == INVALID_HANDLE_VALUE) {
    throw ExceptionWindows("Failed to open log file, CreateFile() failed", nullptr, error);
  }
  AutoHandle own(opened, AutoHandle::From::Take);
  LARGE_INTEGER size = {};
  // A file of unknown size is not an empty one, which would be reformatted.
  if (GetFileSizeEx(own.Get(), &size) == 0) {
    throw ExceptionWindows("Failed to open log file, GetFileSizeEx() failed");
  }
  lowFileSize = size.LowPart;
  KeepFile(own);
  return error == ERROR_ALREADY_EXISTS;
}

void MessageFileServer::ResizeFile(std::uint32_t maxMessage) {
  LARGE_INTEGER size = {};
  size.QuadPart = static_cast<LONGLONG>(LogFileSize(maxMessage));
  UseFile([size](HANDLE opened) {
    if (SetFilePointerEx(opened, size, nullptr, FILE_BEGIN) == 0) {
      throw ExceptionWindows("Failed to resize file, SetFilePointerEx() failed in ResizeFile()");
    }
    if (SetEndOfFile(opened) == 0) {
      throw ExceptionWindows("Failed to resize file, SetEndOfFile() failed in ResizeFile()");
    }
  });
}

bool MessageFileServer::WaitUntilFree(Timeout& timeout) {
  while (!timeout.Expired()) {
    const std::optional<DWORD> error = OpenAlone(*configuration, *configLock, timeout);
    if (!error.has_value()) return false;
    switch (*error) {
      case ERROR_SUCCESS:
      case ERROR_FILE_NOT_FOUND:
      case ERROR_PATH_NOT_FOUND:
        return true;
      case ERROR_SHARING_VIOLATION:
        break;
      default:
        throw ExceptionWindows("Failed to wait for log file to be free, CreateFile failed()", nullptr,
                               *error);
    }
  }
  return false;
}
