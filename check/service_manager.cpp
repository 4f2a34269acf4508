#include "check/service_manager.h"

#include <array>
#include <memory>
#include <type_traits>

#include "check/system.h"
#include "client/message/win32.h"

// Both require windows.h.
#include <aclapi.h>
#include <sddl.h>

#undef CreateService
#undef StartService

namespace TamLogCheck {

namespace {

struct ServiceCloser {
  void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, ServiceCloser>;

// A buffer that is aligned for the manager's structures.
using Buffer = std::array<std::uint64_t, 1024>;

template <typename Structure>
const Structure* As(const Buffer& buffer) {
  return reinterpret_cast<const Structure*>(buffer.data());
}

BYTE* BytesOf(Buffer& buffer) {
  return reinterpret_cast<BYTE*>(buffer.data());
}

// Returns null and leaves the last error when the service cannot be opened.
ServiceHandle Open(const std::string& name, DWORD access) {
  const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) Fail("OpenSCManager");
  return ServiceHandle(OpenServiceA(manager.get(), name.c_str(), access));
}

ServiceHandle MustOpen(const std::string& name, DWORD access) {
  ServiceHandle service = Open(name, access);
  if (!service) Fail("OpenService");
  return service;
}

std::string TextOrNothing(const char* text) {
  return text == nullptr ? "" : text;
}

}  // namespace

Recovery RecoveryOfThePackages() {
  return {86400, {{1, 5000}, {1, 30000}, {1, 60000}}};
}

std::string TextOf(const Recovery& recovery) {
  std::string text = "reset after " + std::to_string(recovery.resetSeconds) + " s";
  for (const RestartAction& action : recovery.actions) {
    const std::string what =
        action.type == SC_ACTION_RESTART ? "restart" : "action " + std::to_string(action.type);
    text += ", " + what + " after " + std::to_string(action.delayMs) + " ms";
  }
  return text;
}

bool MayAdminister() {
  return ServiceHandle(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) != nullptr;
}

std::optional<Registration> FindRegistration(const std::string& name) {
  const ServiceHandle service = Open(name, SERVICE_QUERY_CONFIG);
  if (!service && GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST) return std::nullopt;
  if (!service) Fail("OpenService");
  Buffer buffer{};
  DWORD needed = 0;
  auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer.data());
  if (QueryServiceConfigA(service.get(), config, sizeof(buffer), &needed) == 0) Fail("QueryServiceConfig");
  Registration found;
  found.commandLine = TextOrNothing(config->lpBinaryPathName);
  found.account = TextOrNothing(config->lpServiceStartName);
  found.automatic = config->dwStartType == SERVICE_AUTO_START;
  found.ownProcess = config->dwServiceType == SERVICE_WIN32_OWN_PROCESS;
  if (QueryServiceConfig2A(service.get(), SERVICE_CONFIG_DESCRIPTION, BytesOf(buffer), sizeof(buffer),
                           &needed) != 0) {
    found.description = TextOrNothing(As<SERVICE_DESCRIPTIONA>(buffer)->lpDescription);
  }
  return found;
}

ServiceStatus StatusOf(const std::string& name) {
  const ServiceHandle service = Open(name, SERVICE_QUERY_STATUS);
  if (!service) return {};
  SERVICE_STATUS_PROCESS status{};
  DWORD needed = 0;
  if (QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                           sizeof(status), &needed) == 0) {
    Fail("QueryServiceStatusEx");
  }
  return {status.dwCurrentState, status.dwProcessId, status.dwWin32ExitCode};
}

std::uint32_t StartService(const std::string& name) {
  const ServiceHandle service = Open(name, SERVICE_START);
  return service && StartServiceA(service.get(), 0, nullptr) != 0 ? 0 : GetLastError();
}

std::uint32_t StopService(const std::string& name) {
  const ServiceHandle service = Open(name, SERVICE_STOP);
  SERVICE_STATUS status{};
  return service && ControlService(service.get(), SERVICE_CONTROL_STOP, &status) != 0 ? 0 : GetLastError();
}

std::uint32_t DeleteService(const std::string& name) {
  const ServiceHandle service = Open(name, DELETE);
  return service && ::DeleteService(service.get()) != 0 ? 0 : GetLastError();
}

void CreateService(const std::string& name, const std::string& commandLine) {
  const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
  if (!manager) Fail("OpenSCManager");
  const ServiceHandle service(CreateServiceA(manager.get(), name.c_str(), name.c_str(), SERVICE_ALL_ACCESS,
                                             SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                             SERVICE_ERROR_NORMAL, commandLine.c_str(), nullptr, nullptr,
                                             nullptr, nullptr, nullptr));
  if (!service) Fail("CreateService");
}

std::optional<Recovery> FindRecovery() {
  const ServiceHandle service = MustOpen(kServerService, SERVICE_QUERY_CONFIG);
  Buffer buffer{};
  DWORD needed = 0;
  if (QueryServiceConfig2A(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS, BytesOf(buffer), sizeof(buffer),
                           &needed) == 0) {
    return std::nullopt;
  }
  const auto* const found = As<SERVICE_FAILURE_ACTIONSA>(buffer);
  Recovery recovery;
  recovery.resetSeconds = found->dwResetPeriod;
  for (DWORD i = 0; i < found->cActions && found->lpsaActions != nullptr; ++i) {
    recovery.actions.push_back(
        {static_cast<std::uint32_t>(found->lpsaActions[i].Type), found->lpsaActions[i].Delay});
  }
  return recovery;
}

std::uint32_t SetRecovery(const Recovery& recovery) {
  const ServiceHandle service = Open(kServerService, SERVICE_CHANGE_CONFIG | SERVICE_START);
  if (!service) return GetLastError();
  std::vector<SC_ACTION> actions;
  for (const RestartAction& action : recovery.actions) {
    actions.push_back({static_cast<SC_ACTION_TYPE>(action.type), action.delayMs});
  }
  SC_ACTION none{};  // a list of no actions that is not null deletes those that are set
  SERVICE_FAILURE_ACTIONSA set{};
  set.dwResetPeriod = recovery.resetSeconds;
  set.cActions = static_cast<DWORD>(actions.size());
  set.lpsaActions = actions.empty() ? &none : actions.data();
  return ChangeServiceConfig2A(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS, &set) != 0 ? 0 : GetLastError();
}

std::string ServiceAccessList() {
  const ServiceHandle service = MustOpen(kServerService, READ_CONTROL);
  Buffer buffer{};
  DWORD needed = 0;
  if (QueryServiceObjectSecurity(service.get(), DACL_SECURITY_INFORMATION, buffer.data(), sizeof(buffer),
                                 &needed) == 0) {
    Fail("QueryServiceObjectSecurity");
  }
  char* text = nullptr;
  if (ConvertSecurityDescriptorToStringSecurityDescriptorA(buffer.data(), SDDL_REVISION_1,
                                                           DACL_SECURITY_INFORMATION, &text, nullptr) == 0) {
    Fail("ConvertSecurityDescriptorToStringSecurityDescriptor");
  }
  std::string list = text;
  LocalFree(text);
  return list;
}

std::uint32_t TryServiceRight(ServiceRight right) {
  const ServiceHandle service = Open(
      kServerService, right == ServiceRight::Change ? SERVICE_CHANGE_CONFIG : SERVICE_START | SERVICE_STOP);
  return service ? 0 : GetLastError();
}

}  // namespace TamLogCheck
