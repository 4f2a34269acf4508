#include "client/live/mapped_log.h"

#include <cstddef>

#include "client/live/guarded_copy.h"
#include "client/message/win32.h"
#include "records/pipe_protocol.h"

namespace TamLogClient {

namespace {

constexpr DWORD kNewPipesMs = 10;
// A copy of one piece takes some milliseconds, unless a page comes from a slow disk or a debugger holds the
// thread.
constexpr int kCopyMs = 50;
// The size of a view of the largest log, in bytes. A larger mapping was created by another process, and a
// copy of it could take any amount of memory.
constexpr std::uint64_t kMostSlots = 1000000;
constexpr std::size_t kPage = 4096;
constexpr std::size_t kMostBytes = (LogFileSize(kMostSlots) + kPage - 1) / kPage * kPage;

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
  const std::lock_guard lock(opening);
  const Status status = OpenAll(mapName, accepted);
  if (status != Status::Ok) CloseAll();
  return status;
}

Status MappedLog::OpenAll(const std::string& mapName, EventNames accepted) {
  // A starting server has mapped its file before it creates its pipes, and may have to make the file smaller.
  // That fails while another process has the file mapped, and the server stays stopped.
  if (mapName == kFileMapName && !PipesExist()) return Status::NotRunning;
  mapping = Handle(OpenFileMappingA(FILE_MAP_READ, FALSE, mapName.c_str()));
  if (!mapping) return StatusOfLastError();
  Status status = MapView();
  LogFileHeader header{};
  if (status == Status::Ok && !CopyHeader(header)) status = Status::InPage;
  if (status == Status::Ok && header.serverRunning == 0) status = Status::NotRunning;
  if (status == Status::Ok)
    status = OpenReadWait(mapName == kFileMapName && accepted == EventNames::OfTheServer);
  return status;
}

Status MappedLog::MapView() {
  view = static_cast<const unsigned char*>(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
  if (view == nullptr) {
    const Status status = StatusOfLastError();
    return status == Status::AccessDenied ? status : Status::Damaged;
  }
  MEMORY_BASIC_INFORMATION information{};
  if (VirtualQuery(view, &information, sizeof(information)) == 0) return Status::SystemError;
  viewSize = information.RegionSize;
  return viewSize >= kSlotsOffset && viewSize <= kMostBytes ? Status::Ok : Status::Damaged;
}

Status MappedLog::OpenReadWait(bool ofTheServer) {
  LockNames names{};
  if (!Copy(&names, kLockNamesOffset, sizeof(names))) return Status::InPage;
  if (ofTheServer && !FirstForeignName(names).empty())
    return names.name[0][0] == '\0' ? Status::NotRunning : Status::ForeignEvents;
  char* const name = names.name[1];
  name[kLockNameSize - 1] = '\0';
  if (name[0] == '\0') return Status::NotRunning;
  readWait = Handle(OpenEventA(SYNCHRONIZE, FALSE, name));
  return readWait ? Status::Ok : StatusOfLastError();
}

void MappedLog::Close() {
  const std::lock_guard lock(opening);
  CloseAll();
}

void MappedLog::CloseAll() {
  if (view != nullptr && !released) UnmapViewOfFile(view);
  if (reserved) VirtualFree(const_cast<unsigned char*>(view), 0, MEM_RELEASE);
  view = nullptr;
  viewSize = 0;
  released = reserved = false;
  mapping.Close();
  readWait.Close();
}

void MappedLog::ReleaseIfStopped() {
  const std::lock_guard lock(opening);
  LogFileHeader header{};
  if (view == nullptr || released || !CopyHeader(header) || header.serverRunning != 0) return;
  // First: no copy begins any more, and one that runs checks this at its end.
  released = true;
  const bool atRest = CopyEnds();
  UnmapViewOfFile(view);
  // A copy that hangs has to fault when it continues. It must not touch memory that is allocated here later,
  // the guard page of a stack for example. It would read and discard memory allocated between these two
  // calls; only newer systems can unmap and reserve in one call.
  if (!atRest) {
    reserved =
        VirtualAlloc(const_cast<unsigned char*>(view), viewSize, MEM_RESERVE, PAGE_NOACCESS) != nullptr;
  }
  mapping.Close();
  readWait.Close();
}

// Returns whether no copy is running, after waiting up to kCopyMs for a running one.
bool MappedLog::CopyEnds() const {
  for (int i = 0; copying != 0 && i < kCopyMs; ++i) Sleep(1);
  return copying == 0;
}

// --- The bytes.

bool MappedLog::Copy(void* to, std::size_t offset, std::size_t bytes, std::size_t stride) const {
  ++copying;
  const bool copied = !released && GuardedCopy(to, view + offset, bytes, stride) && !released;
  --copying;
  return copied;
}

bool MappedLog::CopyHeader(LogFileHeader& header) const {
  return Copy(&header, 0, sizeof(header));
}

bool MappedLog::CopyChangeCount(std::uint64_t& count) const {
  return Copy(&count, offsetof(LogFileHeader, changeCount), sizeof(count));
}

bool MappedLog::CopySlots(std::size_t first, std::size_t count, LogMessage* to) const {
  return count == 0 || Copy(to, kSlotsOffset + first * sizeof(LogMessage), count * sizeof(LogMessage));
}

bool MappedLog::CopySlotStart(std::size_t slot, std::size_t bytes, LogMessage* to) const {
  return Copy(to, kSlotsOffset + slot * sizeof(LogMessage), bytes);
}

bool MappedLog::CopyNumbers(std::size_t first, std::size_t count, std::uint64_t* to) const {
  static_assert(offsetof(LogMessage, sequence) == 0);
  return Copy(to, kSlotsOffset + first * sizeof(LogMessage), count * sizeof(*to), sizeof(LogMessage));
}

const LogMessage* MappedLog::Slots() const {
  return reinterpret_cast<const LogMessage*>(view + kSlotsOffset);
}

std::size_t MappedLog::SlotCount() const {
  return (viewSize - kSlotsOffset) / sizeof(LogMessage);
}

std::uint64_t MappedLog::Now() const {
  return GetTickCount64();
}

bool MappedLog::WaitForWriter(std::uint32_t timeoutMs) const {
  const std::lock_guard lock(opening);
  return !released && WaitForSingleObject(readWait.Get(), timeoutMs) == WAIT_OBJECT_0;
}

}  // namespace TamLogClient
