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

}  // namespace TamLogClient
