#pragma once

// The most memory that this process has used.

#include <cstddef>

#ifdef _WIN32
#include "util/win32.h"
// After windows.h.
#include <psapi.h>
#else
#include <sys/resource.h>
#endif

namespace TestSupport {

// Returns the greatest number of bytes that were in physical memory at once.
inline std::size_t PeakMemory() {
#ifdef _WIN32
  PROCESS_MEMORY_COUNTERS counters{};
  K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
  return counters.PeakWorkingSetSize;
#else
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
#endif
}

}  // namespace TestSupport
