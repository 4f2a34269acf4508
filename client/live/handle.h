#pragma once

// Owns a kernel handle and closes it. Move-only; null and INVALID_HANDLE_VALUE both mean "nothing owned".

#include <utility>

#include "client/message/status.h"

namespace TamLogClient {

class Handle {
 public:
  Handle() = default;
  explicit Handle(void* owned);
  Handle(Handle&& other) noexcept : handle(std::exchange(other.handle, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept;
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { Close(); }

  void* Get() const { return handle; }
  explicit operator bool() const { return handle != nullptr; }

  // Closes the handle, if one is owned. Keeps the calling thread's last error.
  void Close();

 private:
  void* handle = nullptr;
};

// Returns the status of the calling thread's last error, for an object that could not be opened by its name:
// NotRunning when there is none, AccessDenied, or SystemError.
Status StatusOfLastError();

}  // namespace TamLogClient
