#include "tests/server/faults.h"

#include <cstring>

#include "util/sync.h"
#include "util/timeout.h"
#include "util/win32.h"

// The run-time's own locks call some of these, so nothing here may allocate, use thread-local data or guarded
// statics.

namespace faults {

std::atomic<int> moveFileCalls{0};
std::atomic<bool> moveFileThrows{false};
std::atomic<int> flushViewCalls{0};
std::atomic<bool> flushViewFails{false};
std::atomic<bool> executablePathFails{false};
std::atomic<bool> executablePathIsLong{false};
std::atomic<bool> deviceControlThrows{false};
std::atomic<bool> createThreadFails{false};
std::atomic<int> keysWithAccessList{0};

namespace {

std::atomic<DWORD> watchedThread{0};
std::atomic<int> waitsSeen{0};
std::atomic<int> failingWait{0};
std::atomic<bool> failingWaitThrows{false};
std::atomic<bool> failNow{false};  // the next wait of the watched thread

}  // namespace

void Reset() {
  moveFileCalls = 0;
  moveFileThrows = false;
  flushViewCalls = 0;
  flushViewFails = false;
  executablePathFails = false;
  executablePathIsLong = false;
  deviceControlThrows = false;
  createThreadFails = false;
  keysWithAccessList = 0;
  watchedThread = 0;
}

void WatchWaits(int number, bool throws) {
  failingWaitThrows = throws;
  waitsSeen = 0;
  failingWait = number;
  watchedThread = GetCurrentThreadId();
}

int WaitsSeen() {
  return waitsSeen;
}

}  // namespace faults

namespace {

template <class Function>
Function Real(const char* name, const char* module = "kernel32") {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA(module), name)));
}

BOOL WINAPI FakeMoveFileA(LPCSTR from, LPCSTR to) {
  ++faults::moveFileCalls;
  if (faults::moveFileThrows) throw ForeignException();
  return Real<decltype(&FakeMoveFileA)>("MoveFileA")(from, to);
}

BOOL WINAPI FakeFlushViewOfFile(LPCVOID base, SIZE_T size) {
  ++faults::flushViewCalls;
  if (faults::flushViewFails) {
    SetLastError(ERROR_IO_DEVICE);
    return FALSE;
  }
  return Real<decltype(&FakeFlushViewOfFile)>("FlushViewOfFile")(base, size);
}

DWORD WINAPI FakeGetModuleFileNameA(HMODULE module, LPSTR path, DWORD size) {
  if (faults::executablePathFails) {
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
  }
  if (faults::executablePathIsLong) {
    std::memset(path, 'd', 1019);
    std::memcpy(path + 1019, "\\x.e", 5);
    return 1023;
  }
  return Real<decltype(&FakeGetModuleFileNameA)>("GetModuleFileNameA")(module, path, size);
}

BOOL WINAPI FakeDeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                                LPDWORD returned, LPOVERLAPPED overlapped) {
  if (faults::deviceControlThrows) throw ForeignException();
  return Real<decltype(&FakeDeviceIoControl)>("DeviceIoControl")(device, code, in, inSize, out, outSize,
                                                                 returned, overlapped);
}

HANDLE WINAPI FakeCreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                               LPVOID argument, DWORD flags, LPDWORD id) {
  if (faults::createThreadFails) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  return Real<decltype(&FakeCreateThread)>("CreateThread")(attributes, stack, start, argument, flags, id);
}

LSTATUS WINAPI FakeRegCreateKeyExA(HKEY parent, LPCSTR name, DWORD reserved, LPSTR type, DWORD options,
                                   REGSAM access, const LPSECURITY_ATTRIBUTES security, PHKEY key,
                                   LPDWORD found) {
  if (security != nullptr) ++faults::keysWithAccessList;
  return Real<decltype(&FakeRegCreateKeyExA)>("RegCreateKeyExA", "advapi32")(
      parent, name, reserved, type, options, access, security, key, found);
}

DWORD WINAPI FakeWaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  if (GetCurrentThreadId() == faults::watchedThread && faults::failNow.exchange(false)) {
    if (faults::failingWaitThrows) throw ForeignException();
    SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
  }
  return Real<decltype(&FakeWaitForSingleObject)>("WaitForSingleObject")(handle, milliseconds);
}

}  // namespace

extern "C" {

void __real__ZN10TamLogUtil5Mutex4WaitEj(TamLogUtil::Mutex* mutex, std::uint32_t milliseconds);

// A free lock is taken without a wait, so the chosen one is held for the length of the call.
void __wrap__ZN10TamLogUtil5Mutex4WaitEj(TamLogUtil::Mutex* mutex, std::uint32_t milliseconds) {
  if (GetCurrentThreadId() != faults::watchedThread || ++faults::waitsSeen != faults::failingWait) {
    __real__ZN10TamLogUtil5Mutex4WaitEj(mutex, milliseconds);
    return;
  }
  const TamLogUtil::Mutex::Access held(mutex, TamLogUtil::Timeout::Infinite);
  faults::failNow = true;
  __real__ZN10TamLogUtil5Mutex4WaitEj(mutex, milliseconds);
}

decltype(&FakeMoveFileA) __imp_MoveFileA = FakeMoveFileA;
decltype(&FakeFlushViewOfFile) __imp_FlushViewOfFile = FakeFlushViewOfFile;
decltype(&FakeGetModuleFileNameA) __imp_GetModuleFileNameA = FakeGetModuleFileNameA;
decltype(&FakeDeviceIoControl) __imp_DeviceIoControl = FakeDeviceIoControl;
decltype(&FakeCreateThread) __imp_CreateThread = FakeCreateThread;
decltype(&FakeRegCreateKeyExA) __imp_RegCreateKeyExA = FakeRegCreateKeyExA;
decltype(&FakeWaitForSingleObject) __imp_WaitForSingleObject = FakeWaitForSingleObject;
}
