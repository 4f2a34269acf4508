#include "client/live/mapped_log.h"

#include <array>

#include "client/live/guarded_copy.h"
#include "client/message/win32.h"
#include "records/pipe_protocol.h"

namespace TamLogClient {

namespace {

constexpr DWORD kEventAccess = SYNCHRONIZE | EVENT_MODIFY_STATE;
constexpr int kCopyAttempts = 10;
constexpr std::uint32_t kInPageError = 0xC0000006U;
// A reader inside cannot leave without the header lock. After this time the lock's holder counts as dead.
constexpr DWORD kLeaveMs = 30000;
// The header lock is held for microseconds only: this is how long a reader waits for it, even when the
// caller's time is over.
constexpr DWORD kLockMs = 1000;
constexpr DWORD kNewPipesMs = 10;

Status StatusOfLastError() {
  switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return Status::NotRunning;
    case ERROR_ACCESS_DENIED:
      return Status::AccessDenied;
    default:
      return Status::SystemError;
  }
}

// Copies mapped bytes. An in-page error may be transient and is tried again; any other fault is final.
bool Copy(void* to, const void* from, std::size_t bytes) {
  for (int attempt = 0; attempt < kCopyAttempts; ++attempt) {
    const std::uint32_t code = TamLogClientGuardedCopy(to, from, bytes);
    if (code == 0) return true;
    if (code != kInPageError) return false;
  }
  return false;
}

// Returns whether the server has created its pipes, which it does last. Does not connect. Asks twice: for a
// moment after a client that left at once, no pipe exists.
bool PipesExist() {
  const auto seen = [] {
    return WaitNamedPipeA(kRequestPipeName, 1) != FALSE || GetLastError() != ERROR_FILE_NOT_FOUND;
  };
  if (seen()) return true;
  Sleep(kNewPipesMs);
  return seen();
}

}  // namespace

// --- Opening.

Status MappedLog::Open(const std::string& mapName, EventNames accepted) {
  Close();
  // A starting server has mapped its file before it creates its pipes, and may have to make the file smaller.
  // That fails while another process has the file mapped, and the server stays stopped.
  if (mapName == kFileMapName && !PipesExist()) return Status::NotRunning;
  mapping = Handle(OpenFileMappingA(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, mapName.c_str()));
  if (!mapping) return StatusOfLastError();
  Status status = MapViews();
  LogFileHeader header{};
  if (status == Status::Ok && !CopyHeader(header)) status = Status::InPage;
  if (status == Status::Ok && header.serverRunning == 0) status = Status::NotRunning;
  if (status == Status::Ok)
    status = OpenEvents(mapName == kFileMapName && accepted == EventNames::OfTheServer);
  if (status != Status::Ok) Close();
  return status;
}

Status MappedLog::MapViews() {
  headerView = static_cast<unsigned char*>(
      MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, kSlotsOffset));
  fileView = static_cast<const unsigned char*>(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
  if (headerView == nullptr || fileView == nullptr) {
    const Status status = StatusOfLastError();
    return status == Status::AccessDenied ? status : Status::Damaged;
  }
  MEMORY_BASIC_INFORMATION information{};
  if (VirtualQuery(fileView, &information, sizeof(information)) == 0) return Status::SystemError;
  viewSize = information.RegionSize;
  return viewSize >= kSlotsOffset ? Status::Ok : Status::Damaged;
}

Status MappedLog::OpenEvents(bool ofTheServer) {
  LockNames names{};
  if (!Copy(&names, fileView + kLockNamesOffset, sizeof(names))) return Status::InPage;
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

void MappedLog::Close() {
  if (headerView != nullptr) UnmapViewOfFile(headerView);
  if (fileView != nullptr) UnmapViewOfFile(fileView);
  headerView = nullptr;
  fileView = nullptr;
  viewSize = 0;
  mapping.Close();
  headerLock.Close();
  readWait.Close();
  writeWait.Close();
}

// --- The bytes.

bool MappedLog::CopyHeader(LogFileHeader& header) const {
  return Copy(&header, fileView, sizeof(header));
}

bool MappedLog::CopySlots(std::size_t first, std::size_t count, LogMessage* to) const {
  return count == 0 ||
         Copy(to, fileView + kSlotsOffset + first * sizeof(LogMessage), count * sizeof(LogMessage));
}

const LogMessage* MappedLog::Slots() const {
  return reinterpret_cast<const LogMessage*>(fileView + kSlotsOffset);
}

std::size_t MappedLog::SlotCount() const {
  return (viewSize - kSlotsOffset) / sizeof(LogMessage);
}

// --- Read access.

bool MappedLog::ChangeReadCount(std::int32_t step, std::int32_t& result) {
  std::int32_t count = 0;
  if (!Copy(&count, headerView, sizeof(count))) return false;
  result = count + step;
  return Copy(headerView, &result, sizeof(result));
}

// Takes the header lock at a moment at which readers may enter. Waits for both events at once: between two
// waits a writer could come in, and they would take three system calls instead of one.
Status MappedLog::TakeHeaderLock(std::uint32_t timeoutMs) {
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

Status MappedLog::Enter(std::uint32_t timeoutMs) {
  if (const Status status = TakeHeaderLock(timeoutMs); status != Status::Ok) return status;
  std::int32_t count = 0;
  const bool counted = ChangeReadCount(1, count);
  if (counted) ResetEvent(writeWait.Get());
  SetEvent(headerLock.Get());
  return counted ? Status::Ok : Status::InPage;
}

MappedLog::Left MappedLog::Leave() {
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
