#include "tests/store/faults.h"

#include <atomic>

#include "util/fault_guard.h"
#include "util/win32.h"

namespace StoreTest {
namespace {

// No objects with constructors or guards here: the run-time's own start calls through these pointers.
std::atomic<const char*> failingFunction = nullptr;
std::atomic<DWORD> failingThread = 0;
std::atomic<int> callsLeft = 0;
std::atomic<DWORD> failingError = 0;
std::atomic<bool> met = false;
std::atomic<void*> lastView = nullptr;
std::atomic<std::uint64_t> flushedSize = 0;
std::atomic<int> filesWithAccessList = 0;

std::atomic<DWORD> mappedThread = 0;
std::atomic<int> firstFailing = 0;
std::atomic<int> failingAttempts = 0;
std::atomic<std::uint32_t> failingCode = 0;
std::atomic<int> mappedCalls = 0;

std::atomic<void (*)(void*)> actionBefore = nullptr;
std::atomic<bool> realFaults = false;
std::atomic<PageFault> pageFault = PageFault::InPageError;
std::atomic<int> faultsSeen = 0;
void* faultHandler = nullptr;

char functionName[64];

bool Fails(const char* function) {
  const char* const failing = failingFunction;
  if (failing == nullptr || GetCurrentThreadId() != failingThread || lstrcmpA(function, failing) != 0)
    return false;
  if (--callsLeft != 0) return false;
  met = true;
  return true;
}

// Also sets the error of the failure.
bool FailsWithError(const char* function) {
  if (!Fails(function)) return false;
  SetLastError(failingError);
  return true;
}

template <class Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32"), name)));
}

HANDLE WINAPI FakeCreateFile(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                             DWORD how, DWORD flags, HANDLE pattern) {
  if (FailsWithError("CreateFileA")) return INVALID_HANDLE_VALUE;
  if (security != nullptr) ++filesWithAccessList;
  return Real<decltype(&CreateFileA)>("CreateFileA")(name, access, share, security, how, flags, pattern);
}

HANDLE WINAPI FakeCreateFileMapping(HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protect, DWORD high,
                                    DWORD low, LPCSTR name) {
  if (FailsWithError("CreateFileMappingA")) return nullptr;
  return Real<decltype(&CreateFileMappingA)>("CreateFileMappingA")(file, security, protect, high, low, name);
}

LPVOID WINAPI FakeMapViewOfFile(HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size) {
  if (FailsWithError("MapViewOfFile")) return nullptr;
  lastView = Real<decltype(&MapViewOfFile)>("MapViewOfFile")(mapping, access, high, low, size);
  return lastView;
}

BOOL WINAPI FakeUnmapViewOfFile(LPCVOID view) {
  const BOOL result = Real<decltype(&UnmapViewOfFile)>("UnmapViewOfFile")(view);
  return FailsWithError("UnmapViewOfFile") ? FALSE : result;
}

BOOL WINAPI FakeCloseHandle(HANDLE handle) {
  const BOOL result = Real<decltype(&CloseHandle)>("CloseHandle")(handle);
  return FailsWithError("CloseHandle") ? FALSE : result;
}

BOOL WINAPI FakeFlushViewOfFile(LPCVOID view, SIZE_T size) {
  if (FailsWithError("FlushViewOfFile")) return FALSE;
  flushedSize = size;
  return Real<decltype(&FlushViewOfFile)>("FlushViewOfFile")(view, size);
}

BOOL WINAPI FakeSetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER position, DWORD from) {
  if (FailsWithError("SetFilePointerEx")) return FALSE;
  return Real<decltype(&SetFilePointerEx)>("SetFilePointerEx")(file, distance, position, from);
}

BOOL WINAPI FakeSetEndOfFile(HANDLE file) {
  if (FailsWithError("SetEndOfFile")) return FALSE;
  return Real<decltype(&SetEndOfFile)>("SetEndOfFile")(file);
}

HANDLE WINAPI FakeCreateEvent(LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL signalled, LPCSTR name) {
  if (FailsWithError("CreateEventA")) return nullptr;
  return Real<decltype(&CreateEventA)>("CreateEventA")(security, manual, signalled, name);
}

BOOL WINAPI FakeSetEvent(HANDLE event) {
  const BOOL result = Real<decltype(&SetEvent)>("SetEvent")(event);
  return FailsWithError("SetEvent") ? FALSE : result;
}

BOOL WINAPI FakeResetEvent(HANDLE event) {
  if (FailsWithError("ResetEvent")) return FALSE;
  return Real<decltype(&ResetEvent)>("ResetEvent")(event);
}

DWORD WINAPI FakeWaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
  if (FailsWithError("WaitForMultipleObjects")) return WAIT_FAILED;
  return Real<decltype(&WaitForMultipleObjects)>("WaitForMultipleObjects")(count, handles, all, milliseconds);
}

constexpr DWORD kAccessViolation = 0xC0000005U;

SIZE_T ViewSize() {
  MEMORY_BASIC_INFORMATION region = {};
  VirtualQuery(lastView, &region, sizeof region);
  return region.RegionSize;
}

LONG CALLBACK CountFault(EXCEPTION_POINTERS* pointers) {
  EXCEPTION_RECORD* const record = pointers->ExceptionRecord;
  if (record->ExceptionCode != kAccessViolation) return EXCEPTION_CONTINUE_SEARCH;
  ++faultsSeen;
  if (pageFault == PageFault::InPageError) record->ExceptionCode = 0xC0000006U;
  return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

void FailCall(const std::string& function, int n, std::uint32_t error) {
  lstrcpynA(functionName, function.c_str(), sizeof functionName);
  callsLeft = n;
  failingError = error;
  failingThread = GetCurrentThreadId();
  met = false;
  failingFunction = functionName;
}

void FailMappedAccess(int n, int attempts, std::uint32_t code) {
  firstFailing = n;
  failingAttempts = attempts;
  failingCode = code;
  mappedCalls = 0;
  met = false;
  realFaults = false;
  mappedThread = GetCurrentThreadId();
}

void BeforeMappedAccess(int n, void (*action)(void* view)) {
  FailMappedAccess(n, 1);
  actionBefore = action;
}

void FaultMappedAccess(int n, int attempts, PageFault fault) {
  FailMappedAccess(n, attempts);
  pageFault = fault;
  faultsSeen = 0;
  realFaults = true;
  faultHandler = AddVectoredExceptionHandler(1, CountFault);
}

int FaultsSeen() {
  return faultsSeen;
}

bool FaultMet() {
  return met;
}

int MappedAttempts() {
  return mappedCalls;
}

void WorkAgain() {
  if (faultHandler != nullptr) RemoveVectoredExceptionHandler(faultHandler);
  faultHandler = nullptr;
  failingFunction = nullptr;
  actionBefore = nullptr;
  mappedThread = 0;
}

void* LastView() {
  return lastView;
}

int FilesWithAccessList() {
  return filesWithAccessList;
}

std::uint64_t TakeFlushedSize() {
  return flushedSize.exchange(0);
}

extern "C" {

std::uint32_t __real_RunUnderFaultGuard(void (*function)(void*), void* argument);

std::uint32_t __wrap_RunUnderFaultGuard(void (*function)(void*), void* argument) {
  if (GetCurrentThreadId() == mappedThread) {
    const int call = ++mappedCalls;
    if (call >= firstFailing && call < firstFailing + failingAttempts) {
      met = true;
      const auto action = actionBefore.load();
      if (action != nullptr) {
        action(lastView);
        return __real_RunUnderFaultGuard(function, argument);
      }
      if (!realFaults) return failingCode;
      void* const view = lastView;
      const SIZE_T size = ViewSize();
      DWORD old = 0;
      VirtualProtect(view, size, pageFault == PageFault::NoWriting ? PAGE_READONLY : PAGE_NOACCESS, &old);
      const std::uint32_t code = __real_RunUnderFaultGuard(function, argument);
      VirtualProtect(view, size, PAGE_READWRITE, &old);
      return code;
    }
  }
  return __real_RunUnderFaultGuard(function, argument);
}

decltype(&CreateFileA) __imp_CreateFileA = FakeCreateFile;
decltype(&CreateFileMappingA) __imp_CreateFileMappingA = FakeCreateFileMapping;
decltype(&MapViewOfFile) __imp_MapViewOfFile = FakeMapViewOfFile;
decltype(&UnmapViewOfFile) __imp_UnmapViewOfFile = FakeUnmapViewOfFile;
decltype(&CloseHandle) __imp_CloseHandle = FakeCloseHandle;
decltype(&FlushViewOfFile) __imp_FlushViewOfFile = FakeFlushViewOfFile;
decltype(&SetFilePointerEx) __imp_SetFilePointerEx = FakeSetFilePointerEx;
decltype(&SetEndOfFile) __imp_SetEndOfFile = FakeSetEndOfFile;
decltype(&CreateEventA) __imp_CreateEventA = FakeCreateEvent;
decltype(&SetEvent) __imp_SetEvent = FakeSetEvent;
decltype(&ResetEvent) __imp_ResetEvent = FakeResetEvent;
decltype(&WaitForMultipleObjects) __imp_WaitForMultipleObjects = FakeWaitForMultipleObjects;
}

}  // namespace StoreTest
