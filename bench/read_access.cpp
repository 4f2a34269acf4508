#include "bench/read_access.h"

#include <array>
#include <cstdlib>

#include "bench/bench_store.h"
#include "util/win32.h"

namespace Bench {

namespace {

constexpr DWORD kMostMs = 5000;

void Expect(bool done) {
  if (!done) std::exit(2);
}

HANDLE Open(const char* name) {
  HANDLE const event = OpenEventA(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name);
  Expect(event != nullptr);
  return event;
}

}  // namespace

ReadAccess::ReadAccess(std::int32_t& count)
    : readCount(&count),
      headerLock(Open(kHeaderLock)),
      readWait(Open(kReadWait)),
      writeWait(Open(kWriteWait)) {}

ReadAccess::~ReadAccess() {
  for (HANDLE const event : {headerLock, readWait, writeWait}) CloseHandle(event);
}

void ReadAccess::Enter() {
  const std::array<HANDLE, 2> both{readWait, headerLock};
  Expect(WaitForMultipleObjects(2, both.data(), TRUE, kMostMs) == WAIT_OBJECT_0);
  *readCount = *readCount + 1;
  ResetEvent(writeWait);
  SetEvent(headerLock);
}

void ReadAccess::Leave() {
  Expect(WaitForSingleObject(headerLock, kMostMs) == WAIT_OBJECT_0);
  *readCount = *readCount - 1;
  Expect(*readCount == 0);
  SetEvent(writeWait);
  SetEvent(headerLock);
}

}  // namespace Bench
