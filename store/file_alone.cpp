#include "store/file_alone.h"

#include "util/win32.h"

std::uint32_t OpenFileAlone(const std::string& path) {
  const HANDLE opened =
      CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return GetLastError();
  CloseHandle(opened);
  return ERROR_SUCCESS;
}
