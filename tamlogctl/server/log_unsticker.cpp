#include "tamlogctl/server/log_unsticker.h"

#include <cstddef>
#include <cstdint>

#include "client/live/guarded_copy.h"
#include "client/live/handle.h"
#include "client/message/win32.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Handle;

constexpr DWORD kLockPatienceMs = 1000;  // it is usually held for microseconds

Handle OpenToChange(const char* event) {
  return Handle(OpenEventA(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, event));
}

// The caller holds the header lock.
bool Forget(unsigned char* headerView, const Handle& writeWait, const LogFileHeader& seen) {
  LogFileHeader now{};
  if (!TamLogClient::GuardedCopy(&now, headerView, sizeof(now))) return false;
  if (now.readCount != seen.readCount || now.changeCount != seen.changeCount) return false;
  // With a count that stays raised, the next reader that leaves would not signal write-wait.
  constexpr std::int32_t kNone = 0;
  static_assert(offsetof(LogFileHeader, readCount) == 0);
  const bool done = TamLogClient::GuardedCopy(headerView, &kNone, sizeof(kNone));
  SetEvent(writeWait.Get());
  return done;
}

}  // namespace

bool FreeHeaderLock() {
  const Handle headerLock = OpenToChange(kHeaderLockName);
  if (!headerLock) return false;
  // A lock that programs pass to each other is never seen free, but a program that waits for it gets it in
  // turn. A signal while another process holds it would let two programs in.
  const bool contended = WaitForSingleObject(headerLock.Get(), kLockPatienceMs) == WAIT_OBJECT_0;
  return SetEvent(headerLock.Get()) != FALSE && !contended;
}

bool ForgetReaders(const LogFileHeader& seen) {
  const Handle mapping(OpenFileMappingA(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, kFileMapName));
  const Handle headerLock = OpenToChange(kHeaderLockName);
  const Handle writeWait = OpenToChange(kWriteWaitEventName);
  if (!mapping || !headerLock || !writeWait) return false;
  auto* const headerView = static_cast<unsigned char*>(
      MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, kSlotsOffset));
  if (headerView == nullptr) return false;
  bool done = false;
  if (WaitForSingleObject(headerLock.Get(), kLockPatienceMs) == WAIT_OBJECT_0) {
    done = Forget(headerView, writeWait, seen);
    SetEvent(headerLock.Get());
  }
  UnmapViewOfFile(headerView);
  return done;
}

}  // namespace TamLogCtl
