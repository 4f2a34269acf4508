// The look at a free file as it ends on Windows, in place of store/file_alone.cpp: there a file that another
// process only has mapped counts as free. Wine lets a mapped file be opened by a program that shares it for
// writing; a file that another process has open for reading is still refused.

#include "store/file_alone.h"
#include "util/win32.h"

std::uint32_t OpenFileAlone(const std::string& path) {
  const HANDLE opened = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return GetLastError();
  CloseHandle(opened);
  return ERROR_SUCCESS;
}
