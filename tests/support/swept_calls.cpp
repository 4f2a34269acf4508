// The system calls that the server's code makes and that can fail, each with the failure that it returns when
// its turn comes. CMake reads the names from here: an import without a line is not swept, and
// scripts/call-faults.sh counts its call sites as not failed.

#include "tests/support/swept_calls.h"

// These require windows.h.
#include <aclapi.h>

#include <ctime>

// The attributes of a declared function state the checks on it, not its calling convention.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace TestSupport::Swept {

constexpr char kKernel[] = "kernel32";
constexpr char kAdvapi[] = "advapi32";
constexpr char kRuntime[] = "msvcrt";
constexpr std::int64_t kInvalidHandle = -1;
constexpr WhenItFails kDone = WhenItFails::ItWasDoneAllTheSame;

// Defines the pointer through which the server's code makes the call.
#define SWEPT_CALL(function, ...)                                                      \
  inline constexpr Call k##function = {.name = #function, __VA_ARGS__};                \
  extern "C" {                                                                         \
  extern decltype(&function) swept_##function;                                         \
  decltype(&function) swept_##function = &Hook<k##function, decltype(&function)>::Run; \
  }

// clang-format off
// Handles, threads, waits
SWEPT_CALL(CloseHandle, .module = kKernel, .failure = 0, .error = ERROR_INVALID_HANDLE, .when = kDone, .closes = kHandle)
SWEPT_CALL(DuplicateHandle, .module = kKernel, .failure = 0, .error = ERROR_NO_SYSTEM_RESOURCES, .opens = kHandle, .openedBy = 3)
SWEPT_CALL(CreateEventA, .module = kKernel, .failure = 0, .error = ERROR_NOT_ENOUGH_MEMORY, .opens = kHandle)
SWEPT_CALL(SetEvent, .module = kKernel, .failure = 0, .error = ERROR_INVALID_HANDLE, .when = WhenItFails::AsAsked)
SWEPT_CALL(ResetEvent, .module = kKernel, .failure = 0, .error = ERROR_INVALID_HANDLE)
SWEPT_CALL(WaitForSingleObject, .module = kKernel, .failure = WAIT_FAILED, .error = ERROR_INVALID_HANDLE)
SWEPT_CALL(WaitForMultipleObjects, .module = kKernel, .failure = WAIT_FAILED, .error = ERROR_INVALID_HANDLE)
SWEPT_CALL(SignalObjectAndWait, .module = kKernel, .failure = WAIT_FAILED, .error = ERROR_INVALID_HANDLE)
SWEPT_CALL(CreateThread, .module = kKernel, .failure = 0, .error = ERROR_NOT_ENOUGH_MEMORY, .opens = kHandle)
SWEPT_CALL(SuspendThread, .module = kKernel, .failure = -1, .error = ERROR_ACCESS_DENIED)
SWEPT_CALL(ResumeThread, .module = kKernel, .failure = -1, .error = ERROR_ACCESS_DENIED)
SWEPT_CALL(TerminateThread, .module = kKernel, .failure = 0, .error = ERROR_ACCESS_DENIED)
SWEPT_CALL(TerminateProcess, .module = kKernel, .failure = 0, .error = ERROR_ACCESS_DENIED)
// Texts, times, memory
SWEPT_CALL(FormatMessageA, .module = kKernel, .failure = 0, .error = ERROR_MR_MID_NOT_FOUND, .opens = kMemory, .openedBy = 4)
SWEPT_CALL(GetModuleFileNameA, .module = kKernel, .failure = 0, .error = ERROR_ACCESS_DENIED)
SWEPT_CALL(LocalFree, .module = kKernel, .failure = 0, .error = ERROR_INVALID_HANDLE, .when = kDone, .closes = kMemory, .failureIsArgument = true)
SWEPT_CALL(HeapAlloc, .module = kKernel, .failure = 0, .error = ERROR_NOT_ENOUGH_MEMORY, .opens = kMemory)
SWEPT_CALL(HeapFree, .module = kKernel, .failure = 0, .error = ERROR_INVALID_PARAMETER, .when = kDone, .closes = kMemory, .closed = 2)
SWEPT_CALL(_time64, .module = kRuntime, .failure = -1, .error = ERROR_SUCCESS)
SWEPT_CALL(_localtime64_s, .module = kRuntime, .failure = EINVAL, .error = ERROR_SUCCESS)
SWEPT_CALL(asctime_s, .module = kRuntime, .failure = EINVAL, .error = ERROR_SUCCESS)
// Files and mappings
SWEPT_CALL(CreateFileA, .module = kKernel, .failure = kInvalidHandle, .error = ERROR_ACCESS_DENIED, .opens = kHandle)
SWEPT_CALL(GetFileSizeEx, .module = kKernel, .failure = 0, .error = ERROR_IO_DEVICE)
SWEPT_CALL(SetFilePointerEx, .module = kKernel, .failure = 0, .error = ERROR_IO_DEVICE)
SWEPT_CALL(SetEndOfFile, .module = kKernel, .failure = 0, .error = ERROR_DISK_FULL)
SWEPT_CALL(MoveFileA, .module = kKernel, .failure = 0, .error = ERROR_ACCESS_DENIED)
SWEPT_CALL(CreateFileMappingA, .module = kKernel, .failure = 0, .error = ERROR_COMMITMENT_LIMIT, .opens = kHandle)
SWEPT_CALL(MapViewOfFile, .module = kKernel, .failure = 0, .error = ERROR_NOT_ENOUGH_MEMORY, .opens = kView)
SWEPT_CALL(UnmapViewOfFile, .module = kKernel, .failure = 0, .error = ERROR_INVALID_ADDRESS, .when = kDone, .closes = kView)
SWEPT_CALL(FlushViewOfFile, .module = kKernel, .failure = 0, .error = ERROR_IO_DEVICE)
SWEPT_CALL(VirtualQuery, .module = kKernel, .failure = 0, .error = ERROR_INVALID_PARAMETER)
// Pipes and the driver
SWEPT_CALL(CreateNamedPipeA, .module = kKernel, .failure = kInvalidHandle, .error = ERROR_PIPE_BUSY, .opens = kHandle)
SWEPT_CALL(ConnectNamedPipe, .module = kKernel, .failure = 0, .error = ERROR_NO_SYSTEM_RESOURCES)
SWEPT_CALL(DisconnectNamedPipe, .module = kKernel, .failure = 0, .error = ERROR_PIPE_NOT_CONNECTED)
SWEPT_CALL(ReadFile, .module = kKernel, .failure = 0, .error = ERROR_NO_SYSTEM_RESOURCES)
SWEPT_CALL(WriteFile, .module = kKernel, .failure = 0, .error = ERROR_NO_SYSTEM_RESOURCES)
SWEPT_CALL(CancelIoEx, .module = kKernel, .failure = 0, .error = ERROR_NOT_FOUND, .when = kDone)
SWEPT_CALL(DeviceIoControl, .module = kKernel, .failure = 0, .error = ERROR_GEN_FAILURE)
// Access lists
SWEPT_CALL(AllocateAndInitializeSid, .module = kAdvapi, .failure = 0, .error = ERROR_NOT_ENOUGH_MEMORY, .opens = kMemory, .openedBy = 10)
SWEPT_CALL(FreeSid, .module = kAdvapi, .failure = 0, .error = ERROR_INVALID_SID, .when = kDone, .closes = kMemory, .failureIsArgument = true)
SWEPT_CALL(SetEntriesInAclA, .module = kAdvapi, .failure = ERROR_NOT_ENOUGH_MEMORY, .error = ERROR_SUCCESS, .opens = kMemory, .openedBy = 3)
SWEPT_CALL(InitializeSecurityDescriptor, .module = kAdvapi, .failure = 0, .error = ERROR_UNKNOWN_REVISION)
SWEPT_CALL(SetSecurityDescriptorDacl, .module = kAdvapi, .failure = 0, .error = ERROR_INVALID_SECURITY_DESCR)
SWEPT_CALL(GetSecurityDescriptorDacl, .module = kAdvapi, .failure = 0, .error = ERROR_INVALID_SECURITY_DESCR)
// The registry
SWEPT_CALL(RegCreateKeyExA, .module = kAdvapi, .failure = ERROR_ACCESS_DENIED, .error = ERROR_SUCCESS, .opens = kKey, .openedBy = 7)
SWEPT_CALL(RegCloseKey, .module = kAdvapi, .failure = ERROR_INVALID_HANDLE, .error = ERROR_SUCCESS, .when = kDone, .closes = kKey)
SWEPT_CALL(RegQueryValueExA, .module = kAdvapi, .failure = ERROR_KEY_DELETED, .error = ERROR_SUCCESS)
SWEPT_CALL(RegSetValueExA, .module = kAdvapi, .failure = ERROR_NO_SYSTEM_RESOURCES, .error = ERROR_SUCCESS)
SWEPT_CALL(RegEnumValueA, .module = kAdvapi, .failure = ERROR_KEY_DELETED, .error = ERROR_SUCCESS)
SWEPT_CALL(RegDeleteKeyA, .module = kAdvapi, .failure = ERROR_ACCESS_DENIED, .error = ERROR_SUCCESS)
// The service manager
SWEPT_CALL(OpenSCManagerA, .module = kAdvapi, .failure = 0, .error = ERROR_ACCESS_DENIED, .opens = kService)
SWEPT_CALL(OpenServiceA, .module = kAdvapi, .failure = 0, .error = ERROR_SERVICE_DOES_NOT_EXIST, .opens = kService)
SWEPT_CALL(CreateServiceA, .module = kAdvapi, .failure = 0, .error = ERROR_SERVICE_EXISTS, .opens = kService)
SWEPT_CALL(CloseServiceHandle, .module = kAdvapi, .failure = 0, .error = ERROR_INVALID_HANDLE, .when = kDone, .closes = kService)
SWEPT_CALL(DeleteService, .module = kAdvapi, .failure = 0, .error = ERROR_SERVICE_MARKED_FOR_DELETE)
SWEPT_CALL(ChangeServiceConfig2A, .module = kAdvapi, .failure = 0, .error = ERROR_ACCESS_DENIED)
SWEPT_CALL(QueryServiceObjectSecurity, .module = kAdvapi, .failure = 0, .error = ERROR_ACCESS_DENIED)
SWEPT_CALL(SetServiceObjectSecurity, .module = kAdvapi, .failure = 0, .error = ERROR_ACCESS_DENIED)
SWEPT_CALL(RegisterServiceCtrlHandlerA, .module = kAdvapi, .failure = 0, .error = ERROR_SERVICE_DOES_NOT_EXIST)
SWEPT_CALL(SetServiceStatus, .module = kAdvapi, .failure = 0, .error = ERROR_INVALID_HANDLE)
SWEPT_CALL(StartServiceCtrlDispatcherA, .module = kAdvapi, .failure = 0, .error = ERROR_FAILED_SERVICE_CONTROLLER_CONNECT)
// clang-format on

}  // namespace TestSupport::Swept
