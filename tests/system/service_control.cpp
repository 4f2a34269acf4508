#include "tests/system/service_control.h"

#include <memory>
#include <type_traits>
#include <vector>

#include "tests/system/platform.h"
#include "util/win32.h"

namespace {

struct ServiceCloser {
  void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, ServiceCloser>;

// Returns null when the service is not registered.
ServiceHandle OpenLogServer() {
  const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  if (!manager) ThrowLastError("OpenSCManager");
  ServiceHandle service(OpenServiceA(manager.get(), kServiceName, SERVICE_ALL_ACCESS));
  if (!service && GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST) ThrowLastError("OpenService");
  return service;
}

SERVICE_STATUS_PROCESS Status() {
  SERVICE_STATUS_PROCESS status{};
  const ServiceHandle service = OpenLogServer();
  if (!service) return status;
  DWORD needed = 0;
  if (QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                           sizeof(status), &needed) == 0) {
    ThrowLastError("QueryServiceStatusEx");
  }
  return status;
}

}  // namespace

std::optional<ServiceRegistration> ServiceControl::Registration() {
  const ServiceHandle service = OpenLogServer();
  if (!service) return std::nullopt;
  std::vector<std::byte> space(8192);
  DWORD needed = 0;
  auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(space.data());
  if (QueryServiceConfigA(service.get(), config, static_cast<DWORD>(space.size()), &needed) == 0) {
    ThrowLastError("QueryServiceConfig");
  }
  ServiceRegistration found;
  found.displayName = config->lpDisplayName;
  found.commandLine = config->lpBinaryPathName;
  found.account = config->lpServiceStartName;
  found.type = config->dwServiceType;
  found.startType = config->dwStartType;
  found.errorControl = config->dwErrorControl;
  auto* description = reinterpret_cast<SERVICE_DESCRIPTIONA*>(space.data());
  if (QueryServiceConfig2A(service.get(), SERVICE_CONFIG_DESCRIPTION, reinterpret_cast<BYTE*>(space.data()),
                           static_cast<DWORD>(space.size()), &needed) == 0) {
    ThrowLastError("QueryServiceConfig2");
  }
  if (description->lpDescription != nullptr) found.description = description->lpDescription;
  return found;
}

ServiceState ServiceControl::State() {
  return static_cast<ServiceState>(Status().dwCurrentState);
}

std::uint32_t ServiceControl::ProcessId() {
  return Status().dwProcessId;
}

std::uint32_t ServiceControl::Start() {
  const ServiceHandle service = OpenLogServer();
  if (!service) return ERROR_SERVICE_DOES_NOT_EXIST;
  return StartServiceA(service.get(), 0, nullptr) != 0 ? 0 : GetLastError();
}

std::uint32_t ServiceControl::SendStop() {
  const ServiceHandle service = OpenLogServer();
  if (!service) return ERROR_SERVICE_DOES_NOT_EXIST;
  SERVICE_STATUS status{};
  return ControlService(service.get(), SERVICE_CONTROL_STOP, &status) != 0 ? 0 : GetLastError();
}

std::uint32_t ServiceControl::Delete() {
  const ServiceHandle service = OpenLogServer();
  if (!service) return ERROR_SERVICE_DOES_NOT_EXIST;
  return DeleteService(service.get()) != 0 ? 0 : GetLastError();
}
