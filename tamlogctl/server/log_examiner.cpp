#include "tamlogctl/server/log_examiner.h"

#include <algorithm>
#include <atomic>

#include "client/live/event_names.h"
#include "client/live/guarded_copy.h"
#include "client/log/header_counters.h"
#include "client/message/win32.h"
#include "tamlogctl/base/wait.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Handle;

constexpr DWORD kEventQueryState = 0x0001;  // winnt.h does not name it
constexpr std::uint32_t kLookEveryMs = 20;
constexpr std::uint32_t kLockPatienceMs = 1000;  // it is usually held for microseconds
// A start waits two seconds for programs that keep an old section.
constexpr std::uint32_t kMostMsAtStart = 1000;
constexpr std::size_t kHeaderLock = 0;
constexpr std::size_t kReadWait = 1;
constexpr std::size_t kWriteWait = 2;
constexpr std::array<const char*, 3> kServerEvents{kHeaderLockName, kReadWaitEventName, kWriteWaitEventName};
// Waiting for the header lock would acquire it. The others are manual-reset events: waiting only looks.
constexpr std::array<DWORD, 3> kLookAccess{kEventQueryState, SYNCHRONIZE, SYNCHRONIZE};

bool Signalled(const Handle& event) {
  return WaitForSingleObject(event.Get(), 0) == WAIT_OBJECT_0;
}

// Returns whether an event is signalled, without waiting for it. NtQueryEvent exists since the first Windows
// NT and is the only call that does so.
bool IsSet(const Handle& event) {
  struct EventState {
    LONG type;
    LONG set;
  } state{};
  using QueryEvent = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);
  const auto query = reinterpret_cast<QueryEvent>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryEvent")));
  const bool known = query != nullptr && query(event.Get(), 0, &state, sizeof(state), nullptr) >= 0;
  return !known || state.set != 0;
}

}  // namespace

std::vector<std::string> ServerNamesInUse() {
  std::vector<std::string> names;
  // An object of another kind, or one that refuses, has the name as well.
  const auto note = [&names](const char* name, const Handle& opened) {
    if (opened || GetLastError() != ERROR_FILE_NOT_FOUND) names.emplace_back(name);
  };
  note(kFileMapName, Handle(OpenFileMappingA(FILE_MAP_READ, FALSE, kFileMapName)));
  for (const char* const name : kServerEvents) note(name, Handle(OpenEventA(SYNCHRONIZE, FALSE, name)));
  return names;
}

LogObjects LogExaminer::Open() {
  Close();
  LogObjects found;
  SYSTEM_INFO system;
  GetSystemInfo(&system);
  found.pageBytes = system.dwPageSize;
  mapping = Handle(OpenFileMappingA(FILE_MAP_READ, FALSE, kFileMapName));
  if (!mapping) {
    found.mappingError = GetLastError();
    return found;
  }
  if (!MapView(found) || !OpenEvents(found)) Close();
  return found;
}

bool LogExaminer::MapView(LogObjects& found) {
  fileView = static_cast<const unsigned char*>(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
  if (fileView == nullptr) {
    found.mappingError = GetLastError();
    return false;
  }
  MEMORY_BASIC_INFORMATION information{};
  if (VirtualQuery(fileView, &information, sizeof(information)) != 0)
    found.viewBytes = information.RegionSize;
  return true;
}

bool LogExaminer::OpenEvents(LogObjects& found) {
  LockNames names{};
  if (found.viewBytes < kSlotsOffset ||
      !TamLogClient::GuardedCopy(&names, fileView + kLockNamesOffset, sizeof(names)))
    return false;
  LogFileHeader header{};
  // While the server opens a new file, the names are not written yet.
  const bool named = CopyHeader(header) && header.serverRunning != 0;
  if (named) found.foreignEvent = TamLogClient::FirstForeignName(names);
  if (!found.foreignEvent.empty()) return false;
  bool good = true;
  for (std::size_t i = 0; i < events.size(); ++i) {
    events[i] = Handle(OpenEventA(kLookAccess[i], FALSE, kServerEvents[i]));
    if (!events[i]) found.eventErrors[i] = GetLastError();
    if (!Handle(OpenEventA(EVENT_MODIFY_STATE, FALSE, kServerEvents[i])))
      found.changeErrors[i] = GetLastError();
    good = good && static_cast<bool>(events[i]);
  }
  return good;
}

void LogExaminer::Close() {
  if (fileView != nullptr) UnmapViewOfFile(fileView);
  fileView = nullptr;
  mapping.Close();
  for (Handle& event : events) event.Close();
}

bool LogExaminer::CopyHeader(LogFileHeader& header) const {
  return fileView != nullptr && TamLogClient::GuardedCopy(&header, fileView, sizeof(header));
}

// Copies the header if the server does not write it meanwhile.
bool LogExaminer::CopyWholeHeader(LogFileHeader& header) const {
  LogFileHeader copy{};
  LogFileHeader again{};
  if (!Signalled(events[kReadWait]) || !CopyHeader(copy)) return false;
  std::atomic_thread_fence(std::memory_order_acquire);
  if (!Signalled(events[kReadWait]) || !CopyHeader(again) || !TamLogClient::SameCounters(copy, again))
    return false;
  header = again;
  return true;
}

bool LogExaminer::LockStaysHeld() const {
  for (const std::uint64_t end = Ticks() + kLockPatienceMs; Ticks() < end;) {
    if (IsSet(events[kHeaderLock])) return false;
    Sleep(1);
  }
  return true;
}

LogWatch LogExaminer::Watch(std::uint32_t milliseconds) {
  LogWatch watch;
  LogFileHeader first{};
  if (!CopyHeader(first)) return watch;
  watch.header = first;
  watch.lockTaken = LockStaysHeld();
  watch.readersInside = watch.countPassed = watch.countLeft = watch.readersKeptOut = true;
  const std::uint64_t start = Ticks();
  bool whole = false;
  for (;;) {
    const bool readOpen = Signalled(events[kReadWait]);
    const bool writeOpen = Signalled(events[kWriteWait]);
    LogFileHeader now{};
    if (!CopyHeader(now)) break;
    watch.watchedMs = static_cast<std::uint32_t>(Ticks() - start);
    if (now.serverRunning == 0 && (first.serverRunning != 0 || watch.watchedMs >= kMostMsAtStart)) {
      if (first.serverRunning != 0) watch = LogWatch{.watchedMs = watch.watchedMs};
      watch.header = now;
      Close();
      break;
    }
    watch.moved = watch.moved || now.readCount != first.readCount || now.changeCount != first.changeCount;
    watch.readersInside = watch.readersInside && !writeOpen && now.readCount > 0;
    watch.countPassed = watch.countPassed && !writeOpen && now.readCount <= 0;
    watch.countLeft = watch.countLeft && writeOpen && now.readCount != 0;
    watch.readersKeptOut = watch.readersKeptOut && !readOpen;
    watch.writerWaits = !readOpen;
    // A server that writes all the time, or hangs while it writes, shows no other header than this.
    whole = CopyWholeHeader(watch.header) || whole;
    if (!whole) watch.header = now;
    const bool quiet =
        !watch.readersInside && !watch.countPassed && !watch.countLeft && !watch.readersKeptOut;
    if ((quiet && whole) || watch.watchedMs >= milliseconds || !SleepFor(kLookEveryMs)) break;
  }
  return watch;
}

}  // namespace TamLogCtl
