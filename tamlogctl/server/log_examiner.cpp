#include "tamlogctl/server/log_examiner.h"

#include <algorithm>

#include "client/live/event_names.h"
#include "client/live/guarded_copy.h"
#include "client/message/win32.h"
#include "tamlogctl/base/wait.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Handle;

constexpr DWORD kLookAccess = SYNCHRONIZE | EVENT_MODIFY_STATE;
constexpr std::uint32_t kLookEveryMs = 20;
constexpr DWORD kLockPatienceMs = 1000;  // it is usually held for microseconds
constexpr std::size_t kHeaderLock = 0;
constexpr std::size_t kReadWait = 1;
constexpr std::size_t kWriteWait = 2;
constexpr std::array<const char*, 3> kServerEvents{kHeaderLockName, kReadWaitEventName, kWriteWaitEventName};

bool Signalled(const Handle& event) {
  return WaitForSingleObject(event.Get(), 0) == WAIT_OBJECT_0;
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

LogObjects LogExaminer::Open(const std::string& mapName) {
  Close();
  LogObjects found;
  SYSTEM_INFO system;
  GetSystemInfo(&system);
  found.pageBytes = system.dwPageSize;
  mapping = Handle(OpenFileMappingA(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, mapName.c_str()));
  if (!mapping) {
    found.mappingError = GetLastError();
    return found;
  }
  if (!MapViews(found) || !OpenEvents(found, mapName == kFileMapName)) Close();
  return found;
}

bool LogExaminer::MapViews(LogObjects& found) {
  fileView = static_cast<const unsigned char*>(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
  if (fileView == nullptr) found.mappingError = GetLastError();
  headerView = static_cast<unsigned char*>(
      MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, kSlotsOffset));
  if (headerView == nullptr) found.writableError = GetLastError();
  if (fileView == nullptr || headerView == nullptr) return false;
  MEMORY_BASIC_INFORMATION information{};
  if (VirtualQuery(fileView, &information, sizeof(information)) != 0)
    found.viewBytes = information.RegionSize;
  return true;
}

bool LogExaminer::OpenEvents(LogObjects& found, bool ofTheServer) {
  LockNames names{};
  if (found.viewBytes < kSlotsOffset ||
      TamLogClientGuardedCopy(&names, fileView + kLockNamesOffset, sizeof(names)) != 0)
    return false;
  LogFileHeader header{};
  // While the server opens a new file, the names are not written yet.
  const bool named = !ofTheServer || (CopyHeader(header) && header.serverRunning == 0);
  if (!named) found.foreignEvent = TamLogClient::FirstForeignName(names);
  if (!found.foreignEvent.empty()) return false;
  bool good = true;
  for (std::size_t i = 0; i < events.size(); ++i) {
    names.name[i][kLockNameSize - 1] = '\0';
    found.eventNames[i] = ofTheServer ? kServerEvents[i] : &names.name[i][0];
    events[i] = Handle(OpenEventA(kLookAccess, FALSE, found.eventNames[i].c_str()));
    if (!events[i]) found.eventErrors[i] = GetLastError();
    good = good && static_cast<bool>(events[i]);
  }
  return good;
}

void LogExaminer::Close() {
  if (headerView != nullptr) UnmapViewOfFile(headerView);
  if (fileView != nullptr) UnmapViewOfFile(fileView);
  headerView = nullptr;
  fileView = nullptr;
  mapping.Close();
  for (Handle& event : events) event.Close();
}

bool LogExaminer::CopyHeader(LogFileHeader& header) const {
  return fileView != nullptr && TamLogClientGuardedCopy(&header, fileView, sizeof(header)) == 0;
}

bool LogExaminer::TakeLock(std::uint32_t milliseconds) const {
  return WaitForSingleObject(events[kHeaderLock].Get(), milliseconds) == WAIT_OBJECT_0;
}

LogWatch LogExaminer::Watch(std::uint32_t milliseconds) {
  LogWatch watch;
  LogFileHeader first{};
  if (!CopyHeader(first)) return watch;
  watch.header = first;
  watch.lockTaken = !TakeLock(kLockPatienceMs);
  if (!watch.lockTaken) SetEvent(events[kHeaderLock].Get());
  watch.readersInside = watch.countPassed = watch.countLeft = watch.readersKeptOut = true;
  const std::uint64_t start = Ticks();
  for (;;) {
    const bool readOpen = Signalled(events[kReadWait]);
    const bool writeOpen = Signalled(events[kWriteWait]);
    if (!CopyHeader(watch.header)) break;
    watch.watchedMs = static_cast<std::uint32_t>(Ticks() - start);
    if (watch.header.serverRunning == 0) {
      Close();
      break;
    }
    watch.moved = watch.moved || watch.header.readCount != first.readCount ||
                  watch.header.changeCount != first.changeCount;
    watch.readersInside = watch.readersInside && !writeOpen && watch.header.readCount > 0;
    watch.countPassed = watch.countPassed && !writeOpen && watch.header.readCount <= 0;
    watch.countLeft = watch.countLeft && writeOpen && watch.header.readCount != 0;
    watch.readersKeptOut = watch.readersKeptOut && !readOpen;
    watch.writerWaits = !readOpen;
    if (!watch.readersInside && !watch.countPassed && !watch.countLeft && !watch.readersKeptOut) break;
    if (watch.watchedMs >= milliseconds || !SleepFor(kLookEveryMs)) break;
  }
  return watch;
}

bool LogExaminer::FreeHeaderLock() {
  return events[kHeaderLock] && SetEvent(events[kHeaderLock].Get()) != FALSE;
}

bool LogExaminer::ForgetReaders(const LogFileHeader& seen) {
  if (headerView == nullptr || !TakeLock(kLockPatienceMs)) return false;
  LogFileHeader now{};
  bool done = CopyHeader(now) && now.readCount == seen.readCount && now.changeCount == seen.changeCount;
  if (done) {
    // With a count that stays raised, the next reader that leaves would not signal write-wait.
    constexpr std::int32_t kNone = 0;
    done = TamLogClientGuardedCopy(headerView, &kNone, sizeof(kNone)) == 0;
    SetEvent(events[kWriteWait].Get());
  }
  SetEvent(events[kHeaderLock].Get());
  return done;
}

}  // namespace TamLogCtl
