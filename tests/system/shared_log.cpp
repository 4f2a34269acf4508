#include "tests/system/shared_log.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include "util/win32.h"

namespace {

OwnedHandle OpenNamedEvent(const std::byte* name) {
  char text[kLockNameSize];
  std::memcpy(text, name, sizeof(text));
  text[kLockNameSize - 1] = '\0';
  return text[0] == '\0' ? OwnedHandle() : Own(OpenEventA(EVENT_MODIFY_STATE | SYNCHRONIZE, FALSE, text));
}

void AddToReadCount(std::byte* view, std::int32_t step) {
  std::int32_t count = 0;
  std::memcpy(&count, view + offsetof(LogFileHeader, readCount), sizeof(count));
  count += step;
  std::memcpy(view + offsetof(LogFileHeader, readCount), &count, sizeof(count));
}

}  // namespace

SharedLog::SharedLog(OwnedHandle mappingHandle, std::byte* viewStart)
    : mapping(std::move(mappingHandle)), view(viewStart) {
  MEMORY_BASIC_INFORMATION region{};
  if (VirtualQuery(view, &region, sizeof(region)) != 0) viewSize = region.RegionSize;
}

std::unique_ptr<SharedLog> SharedLog::TryOpen() {
  OwnedHandle mapping = Own(OpenFileMappingA(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, kFileMapName));
  if (!mapping) return nullptr;
  void* view = MapViewOfFile(mapping.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
  if (view == nullptr) return nullptr;
  std::unique_ptr<SharedLog> log(new SharedLog(std::move(mapping), static_cast<std::byte*>(view)));
  if (log->viewSize < kSlotsOffset || !log->ServerRunning() || !log->OpenEvents()) return nullptr;
  return log;
}

SharedLog::~SharedLog() {
  UnmapViewOfFile(view);
}

bool SharedLog::OpenEvents() {
  headerLock = OpenNamedEvent(view + kLockNamesOffset);
  readWait = OpenNamedEvent(view + kLockNamesOffset + kLockNameSize);
  writeWait = OpenNamedEvent(view + kLockNamesOffset + 2 * kLockNameSize);
  return headerLock && readWait && writeWait;
}

bool SharedLog::ServerRunning() const {
  return std::to_integer<int>(
             *static_cast<volatile std::byte*>(view + offsetof(LogFileHeader, serverRunning))) != 0;
}

bool SharedLog::Enter(std::chrono::milliseconds limit) {
  for (;;) {
    if (WaitForSingleObject(readWait.get(), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0) return false;
    WaitForSingleObject(headerLock.get(), INFINITE);
    if (WaitForSingleObject(readWait.get(), 0) == WAIT_OBJECT_0) break;
    SetEvent(headerLock.get());  // a writer came in between
  }
  AddToReadCount(view, 1);
  ResetEvent(writeWait.get());
  SetEvent(headerLock.get());
  return true;
}

void SharedLog::Leave() {
  WaitForSingleObject(headerLock.get(), INFINITE);
  AddToReadCount(view, -1);
  if (Header().readCount == 0) SetEvent(writeWait.get());
  SetEvent(headerLock.get());
}

LogFileHeader SharedLog::Header() const {
  LogFileHeader header{};
  std::memcpy(&header, view, sizeof(header));
  return header;
}

std::vector<LogMessage> SharedLog::NewestFirst(const LogFileHeader& header,
                                               std::uint64_t fromSequence) const {
  std::vector<LogMessage> messages;
  for (std::int32_t i = 0; i < header.messageCount; ++i) {
    std::int32_t index = header.nextSlot - i - 1;
    if (index < 0) index += header.maxMessages;
    const std::size_t offset = kSlotsOffset + static_cast<std::size_t>(index) * sizeof(LogMessage);
    if (index < 0 || offset + sizeof(LogMessage) > viewSize) {
      throw std::runtime_error("the header leads out of the file");
    }
    LogMessage message{};
    std::memcpy(&message, view + offset, sizeof(message));
    if (message.sequence < fromSequence) break;
    messages.push_back(message);
  }
  return messages;
}
