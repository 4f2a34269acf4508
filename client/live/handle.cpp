#include "client/live/handle.h"

#include "client/message/win32.h"

namespace TamLogClient {

Handle::Handle(void* owned) : handle(owned == INVALID_HANDLE_VALUE ? nullptr : owned) {}

Handle& Handle::operator=(Handle&& other) noexcept {
  if (this != &other) {
    Close();
    handle = std::exchange(other.handle, nullptr);
  }
  return *this;
}

void Handle::Close() {
  if (handle == nullptr) return;
  const DWORD error = GetLastError();
  CloseHandle(handle);
  handle = nullptr;
  SetLastError(error);
}

Status StatusOfLastError() {
  switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return Status::NotRunning;
    case ERROR_ACCESS_DENIED:
      return Status::AccessDenied;
    default:
      return Status::SystemError;
  }
}

}  // namespace TamLogClient
