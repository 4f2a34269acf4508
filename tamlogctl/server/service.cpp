#include "tamlogctl/server/service.h"

#include <memory>
#include <type_traits>

#include "client/message/win32.h"

namespace TamLogCtl {

namespace {

constexpr char kServiceName[] = "TamLogServer";

struct Closer {
  void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, Closer>;

// Null, with the reason in `error`, when it cannot be opened.
ServiceHandle Open(DWORD access, DWORD& error) {
  const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
  ServiceHandle service;
  if (manager) service.reset(OpenServiceA(manager.get(), kServiceName, access));
  error = service ? ERROR_SUCCESS : GetLastError();
  return service;
}

ServiceState StateOf(DWORD raw) {
  switch (raw) {
    case SERVICE_RUNNING:
      return ServiceState::Running;
    case SERVICE_STOPPED:
      return ServiceState::Stopped;
    default:
      return ServiceState::Pending;
  }
}

}  // namespace

ServiceReport QueryService() {
  ServiceReport report;
  DWORD error = ERROR_SUCCESS;
  const ServiceHandle service = Open(SERVICE_QUERY_STATUS, error);
  if (error == ERROR_SERVICE_DOES_NOT_EXIST) report.state = ServiceState::NotInstalled;
  if (error == ERROR_ACCESS_DENIED) report.state = ServiceState::Denied;
  SERVICE_STATUS_PROCESS status{};
  DWORD needed = 0;
  if (service && QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                                      sizeof(status), &needed) != FALSE) {
    report.raw = status.dwCurrentState;
    report.processId = status.dwProcessId;
    report.state = StateOf(report.raw);
  }
  return report;
}

std::uint32_t RequestServiceStart() {
  DWORD error = ERROR_SUCCESS;
  const ServiceHandle service = Open(SERVICE_START, error);
  if (!service) return error;
  return StartServiceA(service.get(), 0, nullptr) != FALSE ? ERROR_SUCCESS : GetLastError();
}

std::uint32_t RequestServiceStop() {
  DWORD error = ERROR_SUCCESS;
  const ServiceHandle service = Open(SERVICE_STOP, error);
  if (!service) return error;
  SERVICE_STATUS status{};
  return ControlService(service.get(), SERVICE_CONTROL_STOP, &status) != FALSE ? ERROR_SUCCESS
                                                                               : GetLastError();
}

std::string ServiceText(const ServiceReport& report) {
  switch (report.state) {
    case ServiceState::Unknown:
      return "unknown";
    case ServiceState::NotInstalled:
      return "not installed";
    case ServiceState::Denied:
      return "access denied";
    case ServiceState::Stopped:
      return "stopped";
    case ServiceState::Running:
      return "running";
    case ServiceState::Pending:
      break;
  }
  if (report.raw == SERVICE_START_PENDING) return "starting";
  return report.raw == SERVICE_STOP_PENDING ? "stopping" : "changing (" + std::to_string(report.raw) + ")";
}

}  // namespace TamLogCtl
