#include "client/live/log_access.h"

#include <array>

#include "client/live/guarded_copy.h"
#include "client/message/win32.h"
#include "records/log_file_format.h"
#include "records/pipe_protocol.h"

namespace TamLogClient {

namespace {

constexpr DWORD kEventAccess = SYNCHRONIZE | EVENT_MODIFY_STATE;
// A reader inside cannot leave without the header lock. After this time the lock's holder counts as dead.
constexpr DWORD kLeaveMs = 30000;
// The header lock is held for microseconds only: this is how long a reader waits for it, even when the
// caller's time is over.
constexpr DWORD kLockMs = 1000;

}  // namespace

Status LogAccess::Open(const std::string& mapName, EventNames accepted) {
  Close();
  mapping = Handle(OpenFileMappingA(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, mapName.c_str()));
  if (!mapping) return StatusOfLastError();
  headerView = static_cast<unsigned char*>(
      MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, kSlotsOffset));
  const Status status = headerView == nullptr
                            ? StatusOfLastError()
                            : OpenEvents(mapName == kFileMapName && accepted == EventNames::OfTheServer);
  if (status != Status::Ok) Close();
  return status;
}

Status LogAccess::OpenEvents(bool ofTheServer) {
  LockNames names{};
  if (!GuardedCopy(&names, headerView + kLockNamesOffset, sizeof(names))) return Status::InPage;
  if (ofTheServer && !FirstForeignName(names).empty())
    return names.name[0][0] == '\0' ? Status::NotRunning : Status::ForeignEvents;
  const std::array<Handle*, 3> events{&headerLock, &readWait, &writeWait};
  for (std::size_t i = 0; i < events.size(); ++i) {
    names.name[i][kLockNameSize - 1] = '\0';
    if (names.name[i][0] == '\0') return Status::NotRunning;
    *events[i] = Handle(OpenEventA(kEventAccess, FALSE, names.name[i]));
    if (!*events[i]) return StatusOfLastError();
  }
  return Status::Ok;
}

void LogAccess::Close() {
  if (headerView != nullptr) UnmapViewOfFile(headerView);
  headerView = nullptr;
  mapping.Close();
  headerLock.Close();
  readWait.Close();
  writeWait.Close();
}

bool LogAccess::ChangeReadCount(std::int32_t step, std::int32_t& result) {
  std::int32_t count = 0;
  if (!GuardedCopy(&count, headerView, sizeof(count))) return false;
  result = count + step;
  return GuardedCopy(headerView, &result, sizeof(result));
}

// Takes the header lock at a moment at which readers may enter. Waits for both events at once: between two
// waits a writer could come in, and they would take three system calls instead of one.
Status LogAccess::TakeHeaderLock(std::uint32_t timeoutMs) {
  const std::array<HANDLE, 2> both{readWait.Get(), headerLock.Get()};
  const auto wait = [&both](DWORD milliseconds) {
    return WaitForMultipleObjects(2, both.data(), TRUE, milliseconds) == WAIT_OBJECT_0;
  };
  const auto readersMayEnter = [this] { return WaitForSingleObject(readWait.Get(), 0) == WAIT_OBJECT_0; };
  if (wait(timeoutMs)) return Status::Ok;
  if (!readersMayEnter()) return Status::TimedOut;
  if (timeoutMs < kLockMs && wait(kLockMs - timeoutMs)) return Status::Ok;
  return readersMayEnter() ? Status::Stuck : Status::TimedOut;
}

Status LogAccess::Enter(std::uint32_t timeoutMs) {
  if (const Status status = TakeHeaderLock(timeoutMs); status != Status::Ok) return status;
  std::int32_t count = 0;
  const bool counted = ChangeReadCount(1, count);
  if (counted) ResetEvent(writeWait.Get());
  SetEvent(headerLock.Get());
  return counted ? Status::Ok : Status::InPage;
}

LogAccess::Left LogAccess::Leave() {
  const bool locked = WaitForSingleObject(headerLock.Get(), kLeaveMs) == WAIT_OBJECT_0;
  std::int32_t count = 0;
  Left left = Left::Normally;
  if (!ChangeReadCount(-1, count)) {
    left = Left::Fault;
  } else if (count < 0) {
    // The writer passed this reader and set the count to 0. A count below 0 would never return to 0, and the
    // next flush would wait for ever. So the count becomes 0, and the write-wait event is signalled as for 0.
    ChangeReadCount(-count, count);
    left = Left::PassedByWriter;
  }
  if (left == Left::Fault || count == 0) SetEvent(writeWait.Get());
  if (locked) SetEvent(headerLock.Get());
  return left;
}

}  // namespace TamLogClient
