#include "tests/client/live/served_log.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <stdexcept>

#include "client/message/win32.h"
// After windows.h.
#include <sddl.h>

namespace TamLogTest {

namespace {

std::atomic<int> serial{0};

LogFileHeader* HeaderOf(unsigned char* view) {
  return reinterpret_cast<LogFileHeader*>(view);
}

TamLogClient::Handle MakeEvent(const std::string& name, bool manual) {
  return TamLogClient::Handle(CreateEventA(nullptr, manual ? TRUE : FALSE, TRUE, name.c_str()));
}

}  // namespace

ServedLog::ServedLog(const TamLogClient::LogSnapshot& content, std::uint64_t bytes, const char* mapName) {
  const std::string suffix = std::to_string(GetCurrentProcessId()) + "-" + std::to_string(serial++);
  const char* const roles[] = {"Map", "HeaderLock", "ReadWait", "WriteWait"};
  for (int i = 0; i < 4; ++i) names[i] = std::string("Global\\TamLogTest") + roles[i] + suffix;
  if (mapName != nullptr) {
    const char* const own[] = {mapName, kHeaderLockName, kReadWaitEventName, kWriteWaitEventName};
    std::copy(std::begin(own), std::end(own), std::begin(names));
  }
  size = bytes != 0 ? bytes : LogFileSize(content.slots.size());
  mapping = TamLogClient::Handle(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE,
                                                    static_cast<DWORD>(size >> 32U), static_cast<DWORD>(size),
                                                    names[0].c_str()));
  headerLock = MakeEvent(names[1], false);
  readWait = MakeEvent(names[2], true);
  writeWait = MakeEvent(names[3], true);
  view = static_cast<unsigned char*>(MapViewOfFile(mapping.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
  if (view == nullptr || !headerLock || !readWait || !writeWait)
    throw std::runtime_error("cannot share a log");
  Lay(content);
  for (std::size_t i = 0; i < 3; ++i) {
    std::memcpy(view + kLockNamesOffset + i * kLockNameSize, names[i + 1].c_str(), names[i + 1].size() + 1);
  }
}

ServedLog::~ServedLog() {
  if (view != nullptr) UnmapViewOfFile(view);
}

void ServedLog::Lay(const TamLogClient::LogSnapshot& content) {
  LogFileHeader header = content.header;
  header.readCount = HeaderOf(view)->readCount;
  std::memcpy(view, &header, sizeof(header));
  const std::size_t room = (size - kSlotsOffset) / sizeof(LogMessage);
  const std::size_t count = std::min(content.slots.size(), room);
  if (count > 0) std::memcpy(view + kSlotsOffset, content.slots.data(), count * sizeof(LogMessage));
}

bool ServedLog::Write(const TamLogClient::LogSnapshot& content, std::uint32_t timeoutMs) {
  if (WaitForSingleObject(headerLock.Get(), timeoutMs) != WAIT_OBJECT_0) return false;
  SetEvent(headerLock.Get());
  if (WaitForSingleObject(readWait.Get(), timeoutMs) != WAIT_OBJECT_0) return false;
  ResetEvent(readWait.Get());
  const bool alone = WaitForSingleObject(writeWait.Get(), timeoutMs) == WAIT_OBJECT_0;
  Lay(content);
  HeaderOf(view)->readCount = 0;
  SetEvent(readWait.Get());
  return alone;
}

void ServedLog::SetRunning(bool running) {
  HeaderOf(view)->serverRunning = running ? 1 : 0;
}
std::int32_t ServedLog::ReadCount() const {
  return HeaderOf(view)->readCount;
}
void ServedLog::SetReadCount(std::int32_t count) {
  HeaderOf(view)->readCount = count;
}
bool ServedLog::WriteWaitIsSignalled() const {
  return WaitForSingleObject(writeWait.Get(), 0) == WAIT_OBJECT_0;
}

bool ServedLog::HeaderLockIsFree() const {
  if (WaitForSingleObject(headerLock.Get(), 0) != WAIT_OBJECT_0) return false;
  SetEvent(headerLock.Get());
  return true;
}

void ServedLog::AllowLookingOnly() {
  const auto restrict = [](const TamLogClient::Handle& object, const char* allowed) {
    const std::string text = std::string("D:(A;;") + allowed + ";;;WD)";
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (ConvertStringSecurityDescriptorToSecurityDescriptorA(text.c_str(), SDDL_REVISION_1, &descriptor,
                                                             nullptr) == FALSE ||
        SetKernelObjectSecurity(object.Get(), DACL_SECURITY_INFORMATION, descriptor) == FALSE)
      throw std::runtime_error("cannot restrict the shared log");
    LocalFree(descriptor);
  };
  restrict(mapping, "0x4");
  restrict(headerLock, "0x1");
  restrict(readWait, "0x100000");
  restrict(writeWait, "0x100000");
}

void ServedLog::CloseReadWait() {
  ResetEvent(readWait.Get());
}
void ServedLog::OpenReadWait() {
  SetEvent(readWait.Get());
}
void ServedLog::TakeHeaderLock() {
  WaitForSingleObject(headerLock.Get(), 5000);
}
void ServedLog::FreeHeaderLock() {
  SetEvent(headerLock.Get());
}

}  // namespace TamLogTest
