#pragma once

// Files of any size that need no room on the disk.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#ifdef _WIN32
#include "util/win32.h"
// After windows.h.
#include <winioctl.h>
#endif

namespace TestSupport {

// Creates a file of zeros.
inline void MakeSparseFile(const std::string& path, std::uint64_t size) {
  std::ofstream(path, std::ios::binary).flush();
#ifdef _WIN32
  const HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD ignored = 0;
  DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &ignored, nullptr);
  CloseHandle(file);
#endif
  std::filesystem::resize_file(path, size);
}

}  // namespace TestSupport
