#include "tests/store/test_reader.h"

#include <stdexcept>

#include "tests/support/temp_dir.h"
#include "util/win32.h"

namespace StoreTest {
namespace {

template <class Handle>
Handle Present(Handle handle, const char* what) {
  if (handle == nullptr) throw std::runtime_error(what);
  return handle;
}

}  // namespace

ObjectNames ObjectNames::Of(const std::string& tag) {
  const std::string end = "_" + tag + "_" + TestSupport::ProcessSuffix();
  return {.map = "StoreTestMap" + end,
          .headerLock = "StoreTestHeader" + end,
          .readWait = "StoreTestRead" + end,
          .writeWait = "StoreTestWrite" + end};
}

TestReader::TestReader(const ObjectNames& names)
    : mapping(Present(OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, names.map.c_str()), "mapping")),
      headerLock(Present(OpenEventA(EVENT_ALL_ACCESS, FALSE, names.headerLock.c_str()), "header lock")),
      readWait(Present(OpenEventA(EVENT_ALL_ACCESS, FALSE, names.readWait.c_str()), "read-wait")),
      writeWait(Present(OpenEventA(EVENT_ALL_ACCESS, FALSE, names.writeWait.c_str()), "write-wait")),
      view(static_cast<unsigned char*>(
          Present(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0), "view"))) {}

TestReader::~TestReader() {
  UnmapViewOfFile(view);
  CloseHandle(mapping);
  CloseHandle(headerLock);
  CloseHandle(readWait);
  CloseHandle(writeWait);
}

bool TestReader::Enter(std::uint32_t milliseconds) {
  while (true) {
    if (!WaitForReadWait(milliseconds) || !TakeHeaderLock(milliseconds)) return false;
    if (WaitForReadWait(0)) break;
    GiveHeaderLockBack();
  }
  CountIn();
  GiveHeaderLockBack();
  return true;
}

void TestReader::Leave() {
  TakeHeaderLock(10000);
  const std::int32_t left = Header().readCount - 1;
  Header().readCount = left;
  if (left == 0) SetEvent(writeWait);
  GiveHeaderLockBack();
}

bool TestReader::WaitForReadWait(std::uint32_t milliseconds) const {
  return WaitForSingleObject(readWait, milliseconds) == WAIT_OBJECT_0;
}

bool TestReader::TakeHeaderLock(std::uint32_t milliseconds) const {
  return WaitForSingleObject(headerLock, milliseconds) == WAIT_OBJECT_0;
}

void TestReader::GiveHeaderLockBack() const {
  SetEvent(headerLock);
}

void TestReader::CountIn() {
  Header().readCount = Header().readCount + 1;
  ResetEvent(writeWait);
}

bool TestReader::WriteWaitIsSignalled() const {
  return WaitForSingleObject(writeWait, 0) == WAIT_OBJECT_0;
}

void TestReader::SignalWriteWait() const {
  SetEvent(writeWait);
}

void TestReader::SignalReadWait() const {
  SetEvent(readWait);
}

void TestReader::ResetReadWait() const {
  ResetEvent(readWait);
}

LogMessage& TestReader::Slot(std::int32_t index) {
  return *reinterpret_cast<LogMessage*>(view + kSlotsOffset +
                                        static_cast<std::size_t>(index) * sizeof(LogMessage));
}

std::string TestReader::LockName(int index) const {
  return reinterpret_cast<const char*>(view) + kLockNamesOffset +
         static_cast<std::size_t>(index) * kLockNameSize;
}

std::vector<LogMessage> TestReader::Messages() {
  std::vector<LogMessage> messages;
  const std::int32_t count = Header().messageCount;
  const std::int32_t capacity = Header().maxMessages;
  const std::int32_t next = Header().nextSlot;
  messages.reserve(static_cast<std::size_t>(count));
  for (std::int32_t i = 0; i < count; ++i) messages.push_back(Slot((next - i - 1 + capacity) % capacity));
  return messages;
}

}  // namespace StoreTest
