#include "packaging/setup/service.h"

#include <array>
#include <memory>
#include <vector>

#include "client/message/win32.h"
#include "packaging/setup/setup_error.h"

namespace TamLogSetup {

namespace {

constexpr wchar_t kName[] = L"TamLogServer";
constexpr ULONGLONG kStopLimit = 60'000;  // ms; a stop during a restart that hangs takes up to 45 s
constexpr ULONGLONG kStartLimit = 30'000;
constexpr DWORD kInstallLimit = 30'000;
constexpr DWORD kStep = 100;

struct ServiceCloser {
  void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using Service = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, ServiceCloser>;

struct HandleCloser {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

// Null when the service is not registered.
Service Open(DWORD access) {
  const Service manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) FailLast("cannot reach the service manager");
  Service service(OpenServiceW(manager.get(), kName, access));
  if (!service && GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST) FailLast("cannot open the service");
  return service;
}

Service OpenRegistered(DWORD access) {
  Service service = Open(access);
  if (!service) throw SetupError("the service TamLogServer is not registered");
  return service;
}

SERVICE_STATUS_PROCESS StatusOf(SC_HANDLE service) {
  SERVICE_STATUS_PROCESS status{};
  DWORD size = 0;
  if (QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                           &size) == FALSE)
    FailLast("cannot query the service");
  return status;
}

Handle ProcessOf(const SERVICE_STATUS_PROCESS& status) {
  return Handle(status.dwProcessId == 0 ? nullptr : OpenProcess(SYNCHRONIZE, FALSE, status.dwProcessId));
}

// The manager can continue to report a state whose process has ended.
bool HasEnded(const SERVICE_STATUS_PROCESS& status) {
  if (status.dwCurrentState == SERVICE_STOPPED) return true;
  const Handle process = ProcessOf(status);
  if (!process) return GetLastError() == ERROR_INVALID_PARAMETER;
  return WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0;
}

void ChangeService(const std::wstring& command, DWORD startType) {
  const Service service = OpenRegistered(SERVICE_CHANGE_CONFIG);
  if (ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, startType, SERVICE_NO_CHANGE, command.c_str(),
                           nullptr, nullptr, nullptr, nullptr, nullptr, nullptr) == FALSE)
    FailLast("cannot change the service");
}

std::wstring TextOrNothing(const wchar_t* text) {
  return text == nullptr ? L"" : text;
}

std::optional<Recovery> QueryRecovery(SC_HANDLE service) {
  DWORD size = 0;
  QueryServiceConfig2W(service, SERVICE_CONFIG_FAILURE_ACTIONS, nullptr, 0, &size);
  std::vector<BYTE> buffer(size);
  if (size < sizeof(SERVICE_FAILURE_ACTIONSW) ||
      QueryServiceConfig2W(service, SERVICE_CONFIG_FAILURE_ACTIONS, buffer.data(), size, &size) == FALSE)
    return std::nullopt;
  const auto* const found = reinterpret_cast<const SERVICE_FAILURE_ACTIONSW*>(buffer.data());
  Recovery recovery{
      found->dwResetPeriod, TextOrNothing(found->lpRebootMsg), TextOrNothing(found->lpCommand), {}};
  for (DWORD k = 0; k < found->cActions; ++k)
    recovery.actions.push_back({found->lpsaActions[k].Type, found->lpsaActions[k].Delay});
  return recovery;
}

}  // namespace

std::optional<ServiceEntry> QueryService() {
  const Service service = Open(SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS);
  if (!service) return std::nullopt;
  DWORD size = 0;
  QueryServiceConfigW(service.get(), nullptr, 0, &size);
  std::vector<BYTE> buffer(size);
  auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
  if (size == 0 || QueryServiceConfigW(service.get(), config, size, &size) == FALSE)
    FailLast("cannot query the service");
  return ServiceEntry{config->lpBinaryPathName, config->dwStartType, !HasEnded(StatusOf(service.get())),
                      QueryRecovery(service.get())};
}

void StopService() {
  const Service service = Open(SERVICE_STOP | SERVICE_QUERY_STATUS);
  if (!service) return;
  SERVICE_STATUS_PROCESS status = StatusOf(service.get());
  const Handle process = ProcessOf(status);
  const ULONGLONG begin = GetTickCount64();
  SERVICE_STATUS ignored{};
  // The manager's patience may end before the server's: so the answer does not count, only the state does.
  if (!HasEnded(status)) ControlService(service.get(), SERVICE_CONTROL_STOP, &ignored);
  while (!HasEnded(status)) {
    if (GetTickCount64() - begin > kStopLimit) throw SetupError("the service did not stop within 60 s");
    Sleep(kStep);
    status = StatusOf(service.get());
    // A start that was under way accepts no stop before its end.
    if (status.dwCurrentState == SERVICE_RUNNING)
      ControlService(service.get(), SERVICE_CONTROL_STOP, &ignored);
  }
  // The process outlives the report of its stop by a moment, and its program file stays locked until then.
  if (process) WaitForSingleObject(process.get(), 10'000);
}

void StartService() {
  const Service service = OpenRegistered(SERVICE_START | SERVICE_QUERY_STATUS);
  if (::StartServiceW(service.get(), 0, nullptr) == FALSE && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING)
    FailLast("the service does not start");
  const ULONGLONG begin = GetTickCount64();
  for (;;) {
    const SERVICE_STATUS_PROCESS status = StatusOf(service.get());
    if (status.dwCurrentState == SERVICE_RUNNING) return;
    if (HasEnded(status))
      throw SetupError("the service ended while it started; the reason is in TamLogServiceLog.txt");
    if (GetTickCount64() - begin > kStartLimit) throw SetupError("the service did not start within 30 s");
    Sleep(kStep);
  }
}

void RegisterService(const std::wstring& program) {
  std::wstring command = L"\"" + program + L"\" -install";
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  // An empty input: after a failure the program waits for a character.
  const HANDLE opened = CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    &inherited, OPEN_EXISTING, 0, nullptr);
  const Handle nothing(opened == INVALID_HANDLE_VALUE ? nullptr : opened);
  STARTUPINFOW start{};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = start.hStdOutput = start.hStdError = nothing.get();
  PROCESS_INFORMATION made{};
  if (CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                     nullptr, &start, &made) == FALSE)
    FailLast("cannot run " + Utf8(program));
  const Handle process(made.hProcess);
  const Handle thread(made.hThread);
  DWORD code = 1;
  if (WaitForSingleObject(process.get(), kInstallLimit) != WAIT_OBJECT_0 ||
      GetExitCodeProcess(process.get(), &code) == FALSE || code != 0)
    throw SetupError("the server could not register its service");
}

void DeleteService() {
  const Service service = Open(DELETE);
  if (service && ::DeleteService(service.get()) == FALSE && GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE)
    FailLast("cannot delete the service");
}

void SetCommand(const std::wstring& command) {
  ChangeService(command, SERVICE_NO_CHANGE);
}

Recovery PackageRecovery() {
  return {24 * 60 * 60,
          L"",
          L"",
          {{SC_ACTION_RESTART, 5'000}, {SC_ACTION_RESTART, 30'000}, {SC_ACTION_RESTART, 60'000}}};
}

void SetRecovery(const Recovery& recovery) {
  // A restart needs the right to start the service.
  const Service service = OpenRegistered(SERVICE_CHANGE_CONFIG | SERVICE_START);
  std::vector<SC_ACTION> actions;
  for (const Recovery::Action& action : recovery.actions)
    actions.push_back({static_cast<SC_ACTION_TYPE>(action.type), action.delay});
  std::wstring message = recovery.message;
  std::wstring command = recovery.command;
  SERVICE_FAILURE_ACTIONSW wanted{};
  wanted.dwResetPeriod = recovery.resetPeriod;
  wanted.lpRebootMsg = message.data();
  wanted.lpCommand = command.data();
  wanted.cActions = static_cast<DWORD>(actions.size());
  // Null would keep the present actions; a pointer with a count of 0 deletes them.
  SC_ACTION none{};
  wanted.lpsaActions = actions.empty() ? &none : actions.data();
  if (ChangeServiceConfig2W(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS, &wanted) == FALSE)
    FailLast("cannot set what happens after failures of the service");
}

void RestoreService(const ServiceEntry& entry) {
  ChangeService(entry.command, entry.startType);
  if (entry.recovery) SetRecovery(*entry.recovery);
}

bool DriverDeviceExists() {
  std::array<wchar_t, 1024> target{};
  return QueryDosDeviceW(L"TAMLOG", target.data(), static_cast<DWORD>(target.size())) != 0;
}

}  // namespace TamLogSetup
