#include "tests/soak/server_figures.h"

#include <stdexcept>

#include "tests/system/platform.h"
#include "util/win32.h"

// Requires windows.h.
#include <psapi.h>
#include <tlhelp32.h>

namespace {

std::size_t ThreadsOf(std::uint32_t processId) {
  const OwnedHandle list = Own(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!list) ThrowLastError("listing the processes");
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Process32FirstW(list.get(), &entry); more != FALSE;
       more = Process32NextW(list.get(), &entry)) {
    if (entry.th32ProcessID == processId) return entry.cntThreads;
  }
  throw std::runtime_error("the server's process does not exist");
}

std::size_t MemoryOf(std::uint32_t processId) {
  const OwnedHandle process = Own(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, processId));
  PROCESS_MEMORY_COUNTERS counters{};
  if (!process || GetProcessMemoryInfo(process.get(), &counters, sizeof(counters)) == FALSE) {
    ThrowLastError("asking for the server's memory");
  }
  return counters.WorkingSetSize / 1024 / 1024;
}

}  // namespace

ServerFigures FiguresOf(std::uint32_t processId) {
  return {.handles = ProcessById(processId).HandleCount(),
          .threads = ThreadsOf(processId),
          .memoryMiB = MemoryOf(processId)};
}
