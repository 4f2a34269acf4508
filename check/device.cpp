#include "check/device.h"

#include "check/service_manager.h"
#include "check/system.h"
#include "client/message/win32.h"

#undef CreateService
#undef StartService

namespace TamLogCheck {

namespace {

constexpr char kService[] = "TamLogCheckDevice";
constexpr char kDevice[] = "TAMLOG";
constexpr char kTarget[] = "\\Device\\Null";
constexpr char kDefine[] = "define";
constexpr char kRemove[] = "remove";

bool defining = false;  // the task of the service's process

void WINAPI IgnoreControl(DWORD control) {
  static_cast<void>(control);  // the service ends by itself at once
}

void WINAPI ServiceMain(DWORD count, char** arguments) {
  static_cast<void>(count);
  static_cast<void>(arguments);
  const SERVICE_STATUS_HANDLE handle = RegisterServiceCtrlHandlerA(kService, IgnoreControl);
  SERVICE_STATUS status{};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = SERVICE_RUNNING;
  SetServiceStatus(handle, &status);
  const DWORD flags =
      DDD_RAW_TARGET_PATH | (defining ? 0U : DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE);
  const DWORD error = DefineDosDeviceA(flags, kDevice, kTarget) != 0 ? NO_ERROR : GetLastError();
  Sleep(500);  // the manager notices that the service runs
  status.dwCurrentState = SERVICE_STOPPED;
  status.dwWin32ExitCode = error;
  SetServiceStatus(handle, &status);
}

// Returns the problem; empty when there is none.
std::string RunTask(const std::string& task) {
  try {
    DeleteService(kService);  // left by a run that was ended by force
    CreateService(kService, "\"" + OwnPath() + "\" --device-service " + task);
    std::uint32_t error = StartService(kService);
    const bool ended = Eventually(20000, [] { return StatusOf(kService).Stopped(); });
    if (error == 0) error = StatusOf(kService).exitCode;
    DeleteService(kService);
    if (!ended) return "the service " + std::string(kService) + " does not end";
    return error == 0 ? "" : ErrorText(error);
  } catch (const std::exception& failure) {
    return failure.what();
  }
}

}  // namespace

bool DeviceIsThere() {
  const Handle device = OpenAt(std::string("\\\\.\\") + kDevice, GENERIC_READ | GENERIC_WRITE,
                               FILE_SHARE_READ | FILE_SHARE_WRITE);
  // A running server may refuse to share it.
  return device || (GetLastError() != ERROR_FILE_NOT_FOUND && GetLastError() != ERROR_PATH_NOT_FOUND);
}

std::string ProvideDevice() {
  std::string problem = RunTask(kDefine);
  if (!problem.empty()) return problem;
  if (DeviceIsThere()) return "";
  RunTask(kRemove);
  return "it was defined and cannot be opened";
}

std::string RemoveDevice() {
  return DeviceIsThere() ? RunTask(kRemove) : "";
}

int RunDeviceService(const std::string& task) {
  defining = task == kDefine;
  char name[] = "TamLogCheckDevice";
  const SERVICE_TABLE_ENTRYA table[] = {{name, ServiceMain}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherA(table) != 0 ? 0 : 1;
}

}  // namespace TamLogCheck
