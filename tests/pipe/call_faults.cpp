#include "tests/pipe/call_faults.h"

#include <cstdlib>
#include <new>
#include <utility>

#include "pipe/connection.h"
#include "util/win32.h"

// Must follow windows.h.
#include <aclapi.h>

namespace TestSupport {

namespace {

// A plain global: the calls below come before main and from every thread, so nothing may be constructed on
// first use (a guarded local would call CreateEventA itself).
CallFaults faults;

template <class Function>
Function* Real(const char* library, const char* name) {
  return reinterpret_cast<Function*>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA(library), name)));
}

constexpr char kKernel[] = "kernel32";
constexpr char kSecurity[] = "advapi32";

}  // namespace

CallFaults& Faults() {
  return faults;
}

void CallFault::Fail(std::uint32_t newError, On threads, int count, int skip) {
  error = newError;
  failingThreads = threads;
  settingThread = GetCurrentThreadId();
  skipped = skip;
  failures = count;
}

void CallFault::Clear() {
  failures = 0;
  skipped = 0;
  hasAction = false;
  calls = 0;
  pending = 0;
  returns = 0;
}

void CallFault::Before(std::function<void()> newAction) {
  settingThread = GetCurrentThreadId();
  action = std::move(newAction);
  hasAction = true;
}

bool CallFault::Concerns(On threads) const {
  if (threads == On::AnyThread) return true;
  return (GetCurrentThreadId() == settingThread) == (threads == On::ThisThread);
}

bool CallFault::ShouldFail() {
  if (hasAction && Concerns(On::OtherThreads)) action();
  const bool fails = TakeFailure();
  // Counted when the outcome is decided: a test that saw the count may set failures of later calls.
  ++calls;
  if (fails) SetLastError(error);
  return fails;
}

bool CallFault::TakeFailure() {
  if (failures <= 0 || !Concerns(failingThreads)) return false;
  if (skipped > 0) {
    --skipped;
    return false;
  }
  --failures;
  return true;
}

bool CallFaults::ServerWaits() const {
  const int begun = connectNamedPipe.PendingCalls() + serverRead.PendingCalls();
  return begun > 0 && waitForMultiple.Calls() == begun;
}

void CallFaults::Clear() {
  for (CallFault* fault :
       {&allocateSid, &freeSid, &setEntriesInAcl, &initializeDescriptor, &setDescriptorDacl, &localFree,
        &createOverlapEvent, &setEvent, &resetEvent, &waitForMultiple, &duplicateHandle, &createNamedPipe,
        &connectNamedPipe, &serverRead, &write, &createThread, &allocateConnection}) {
    fault->Clear();
  }
}

namespace {

BOOL WINAPI AllocateAndInitializeSidHere(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD a, DWORD b,
                                         DWORD c, DWORD d, DWORD e, DWORD f, DWORD g, DWORD h, PSID* sid) {
  // Failing with 0 stands for a call that reports success but returns no SID.
  if (faults.allocateSid.ShouldFail()) return faults.allocateSid.Error() == 0;
  return Real<decltype(AllocateAndInitializeSidHere)>(kSecurity, "AllocateAndInitializeSid")(
      authority, count, a, b, c, d, e, f, g, h, sid);
}

PVOID WINAPI FreeSidHere(PSID sid) {
  faults.freeSid.ShouldFail();
  return Real<decltype(FreeSidHere)>(kSecurity, "FreeSid")(sid);
}

DWORD WINAPI SetEntriesInAclHere(ULONG count, PEXPLICIT_ACCESS_A entries, PACL old, PACL* acl) {
  if (faults.setEntriesInAcl.ShouldFail()) return faults.setEntriesInAcl.Error();
  return Real<decltype(SetEntriesInAclHere)>(kSecurity, "SetEntriesInAclA")(count, entries, old, acl);
}

BOOL WINAPI InitializeSecurityDescriptorHere(PSECURITY_DESCRIPTOR descriptor, DWORD revision) {
  if (faults.initializeDescriptor.ShouldFail()) return FALSE;
  return Real<decltype(InitializeSecurityDescriptorHere)>(kSecurity, "InitializeSecurityDescriptor")(
      descriptor, revision);
}

BOOL WINAPI SetSecurityDescriptorDaclHere(PSECURITY_DESCRIPTOR descriptor, BOOL present, PACL acl,
                                          BOOL defaulted) {
  if (faults.setDescriptorDacl.ShouldFail()) return FALSE;
  return Real<decltype(SetSecurityDescriptorDaclHere)>(kSecurity, "SetSecurityDescriptorDacl")(
      descriptor, present, acl, defaulted);
}

HLOCAL WINAPI LocalFreeHere(HLOCAL memory) {
  faults.localFree.ShouldFail();
  return Real<decltype(LocalFreeHere)>(kKernel, "LocalFree")(memory);
}

HANDLE WINAPI CreateEventHere(LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL initial, LPCSTR name) {
  if (manual && !initial && faults.createOverlapEvent.ShouldFail()) return nullptr;
  return Real<decltype(CreateEventHere)>(kKernel, "CreateEventA")(security, manual, initial, name);
}

BOOL WINAPI SetEventHere(HANDLE event) {
  if (faults.setEvent.ShouldFail()) return FALSE;
  return Real<decltype(SetEventHere)>(kKernel, "SetEvent")(event);
}

BOOL WINAPI ResetEventHere(HANDLE event) {
  if (faults.resetEvent.ShouldFail()) return FALSE;
  return Real<decltype(ResetEventHere)>(kKernel, "ResetEvent")(event);
}

DWORD WINAPI WaitForMultipleObjectsHere(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
  if (faults.waitForMultiple.ShouldFail()) return WAIT_FAILED;
  return Real<decltype(WaitForMultipleObjectsHere)>(kKernel, "WaitForMultipleObjects")(count, handles, all,
                                                                                       milliseconds);
}

BOOL WINAPI DuplicateHandleHere(HANDLE fromProcess, HANDLE from, HANDLE toProcess, LPHANDLE to, DWORD access,
                                BOOL inherit, DWORD options) {
  if (faults.duplicateHandle.ShouldFail()) return FALSE;
  return Real<decltype(DuplicateHandleHere)>(kKernel, "DuplicateHandle")(fromProcess, from, toProcess, to,
                                                                         access, inherit, options);
}

HANDLE WINAPI CreateNamedPipeHere(LPCSTR name, DWORD open, DWORD mode, DWORD instances, DWORD out, DWORD in,
                                  DWORD timeout, LPSECURITY_ATTRIBUTES security) {
  if (faults.createNamedPipe.ShouldFail()) return INVALID_HANDLE_VALUE;
  return Real<decltype(CreateNamedPipeHere)>(kKernel, "CreateNamedPipeA")(name, open, mode, instances, out,
                                                                          in, timeout, security);
}

BOOL WINAPI ConnectNamedPipeHere(HANDLE pipe, LPOVERLAPPED overlapped) {
  if (faults.connectNamedPipe.ShouldFail()) return FALSE;
  const BOOL done = Real<decltype(ConnectNamedPipeHere)>(kKernel, "ConnectNamedPipe")(pipe, overlapped);
  if (!done && GetLastError() == ERROR_IO_PENDING) {
    faults.connectNamedPipe.NotePending();
    SetLastError(ERROR_IO_PENDING);
  }
  faults.connectNamedPipe.NoteReturn();
  return done;
}

BOOL WINAPI ReadFileHere(HANDLE file, LPVOID buffer, DWORD size, LPDWORD read, LPOVERLAPPED overlapped) {
  const bool byServer = size == sizeof(PipeRequest);
  if (byServer && faults.serverRead.ShouldFail()) return FALSE;
  const BOOL done = Real<decltype(ReadFileHere)>(kKernel, "ReadFile")(file, buffer, size, read, overlapped);
  if (byServer && !done && GetLastError() == ERROR_IO_PENDING) {
    faults.serverRead.NotePending();
    SetLastError(ERROR_IO_PENDING);
  }
  return done;
}

BOOL WINAPI WriteFileHere(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD written, LPOVERLAPPED overlapped) {
  if (faults.write.ShouldFail()) return FALSE;
  return Real<decltype(WriteFileHere)>(kKernel, "WriteFile")(file, buffer, size, written, overlapped);
}

HANDLE WINAPI CreateThreadHere(LPSECURITY_ATTRIBUTES security, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                               LPVOID argument, DWORD flags, LPDWORD id) {
  if (faults.createThread.ShouldFail()) return nullptr;
  return Real<decltype(CreateThreadHere)>(kKernel, "CreateThread")(security, stack, start, argument, flags,
                                                                   id);
}

}  // namespace

}  // namespace TestSupport

extern "C" {
decltype(TestSupport::AllocateAndInitializeSidHere)* __imp_AllocateAndInitializeSid =
    TestSupport::AllocateAndInitializeSidHere;
decltype(TestSupport::FreeSidHere)* __imp_FreeSid = TestSupport::FreeSidHere;
decltype(TestSupport::SetEntriesInAclHere)* __imp_SetEntriesInAclA = TestSupport::SetEntriesInAclHere;
decltype(TestSupport::InitializeSecurityDescriptorHere)* __imp_InitializeSecurityDescriptor =
    TestSupport::InitializeSecurityDescriptorHere;
decltype(TestSupport::SetSecurityDescriptorDaclHere)* __imp_SetSecurityDescriptorDacl =
    TestSupport::SetSecurityDescriptorDaclHere;
decltype(TestSupport::LocalFreeHere)* __imp_LocalFree = TestSupport::LocalFreeHere;
decltype(TestSupport::CreateEventHere)* __imp_CreateEventA = TestSupport::CreateEventHere;
decltype(TestSupport::SetEventHere)* __imp_SetEvent = TestSupport::SetEventHere;
decltype(TestSupport::ResetEventHere)* __imp_ResetEvent = TestSupport::ResetEventHere;
decltype(TestSupport::WaitForMultipleObjectsHere)* __imp_WaitForMultipleObjects =
    TestSupport::WaitForMultipleObjectsHere;
decltype(TestSupport::DuplicateHandleHere)* __imp_DuplicateHandle = TestSupport::DuplicateHandleHere;
decltype(TestSupport::CreateNamedPipeHere)* __imp_CreateNamedPipeA = TestSupport::CreateNamedPipeHere;
decltype(TestSupport::ConnectNamedPipeHere)* __imp_ConnectNamedPipe = TestSupport::ConnectNamedPipeHere;
decltype(TestSupport::ReadFileHere)* __imp_ReadFile = TestSupport::ReadFileHere;
decltype(TestSupport::WriteFileHere)* __imp_WriteFile = TestSupport::WriteFileHere;
decltype(TestSupport::CreateThreadHere)* __imp_CreateThread = TestSupport::CreateThreadHere;
}

// The listener allocates a connection in this way.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (size == sizeof(PipeServerHandleThread) && TestSupport::faults.allocateConnection.ShouldFail())
    return nullptr;
  return std::malloc(size);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
