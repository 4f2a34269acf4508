#include "tests/system/flush_watch.h"

#include <algorithm>
#include <stdexcept>

#include "records/log_file_format.h"
#include "tests/system/platform.h"
#include "util/win32.h"

using Clock = std::chrono::steady_clock;
using std::chrono::duration_cast;

FlushWatch::FlushWatch() {
  const OwnedHandle mapping = Own(OpenFileMappingA(FILE_MAP_READ, FALSE, kFileMapName));
  const void* const view =
      mapping ? MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, kSlotsOffset) : nullptr;
  void* const readWait = OpenEventA(SYNCHRONIZE, FALSE, kReadWaitEventName);
  if (view == nullptr || readWait == nullptr) throw std::runtime_error("no server shares a log");
  thread = std::thread([this, view, readWait] { Run(view, readWait); });
}

FlushWatch::Figures FlushWatch::Stop() {
  stopping = true;
  if (thread.joinable()) thread.join();
  return figures;
}

void FlushWatch::Run(const void* view, void* readWait) {
  const auto* const header = static_cast<const volatile LogFileHeader*>(view);
  std::uint64_t changes = header->changeCount;
  Clock::time_point changed = Clock::now();
  Clock::time_point open = changed;  // the last sample that found the event signalled
  bool writing = false;
  while (!stopping) {
    const bool isOpen = WaitForSingleObject(readWait, 0) == WAIT_OBJECT_0;
    const auto now = Clock::now();
    if (writing || !isOpen) {
      figures.longestWrite = std::max(figures.longestWrite, duration_cast<Milliseconds>(now - open));
    }
    writing = !isOpen;
    if (isOpen) open = now;
    figures.longestPause = std::max(figures.longestPause, duration_cast<Milliseconds>(now - changed));
    if (header->changeCount != changes) {
      changes = header->changeCount;
      changed = now;
      ++figures.flushes;
    }
    if (header->readCount != 0) ++figures.counted;
    ++figures.samples;
    Sleep(1);
  }
  UnmapViewOfFile(view);
  CloseHandle(readWait);
}
