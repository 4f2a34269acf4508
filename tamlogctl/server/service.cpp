#include "tamlogctl/server/service.h"

#include <algorithm>
#include <memory>
#include <type_traits>
#include <vector>

#include "client/live/handle.h"
#include "client/message/win32.h"
#include "tamlogctl/base/wide_text.h"
#include "tamlogctl/server/access_list_reader.h"

// Must follow windows.h.
#include <aclapi.h>
#include <sddl.h>

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

bool HasEnded(DWORD processId) {
  const TamLogClient::Handle process(OpenProcess(SYNCHRONIZE, FALSE, processId));
  if (!process) return GetLastError() == ERROR_INVALID_PARAMETER;
  return WaitForSingleObject(process.Get(), 0) == WAIT_OBJECT_0;
}

// "\"C:\a b\x.exe\" -option" and "C:\x.exe -option" name a program.
std::wstring ProgramOf(std::wstring command) {
  if (!command.empty() && command.front() == L'"') return command.substr(1, command.find(L'"', 1) - 1);
  const std::size_t end = command.find(L".exe ");
  return end == std::wstring::npos ? command : command.substr(0, end + 4);
}

void ReadProgram(SC_HANDLE service, ServiceDetails& details) {
  DWORD needed = 0;
  QueryServiceConfigW(service, nullptr, 0, &needed);
  std::vector<BYTE> buffer(needed);
  auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
  if (needed == 0 || QueryServiceConfigW(service, config, needed, &needed) == FALSE) return;
  const std::wstring program = ProgramOf(config->lpBinaryPathName);
  details.program = WideToUtf8(program);
  details.programMissing = GetFileAttributesW(program.c_str()) == INVALID_FILE_ATTRIBUTES &&
                           (GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND);
}

// Returns the security descriptor with the access list; empty when it cannot be read.
std::vector<BYTE> ReadSecurity(SC_HANDLE service) {
  DWORD needed = 0;
  PSECURITY_DESCRIPTOR none = nullptr;
  QueryServiceObjectSecurity(service, DACL_SECURITY_INFORMATION, &none, 0, &needed);
  std::vector<BYTE> descriptor(needed);
  if (needed == 0 || QueryServiceObjectSecurity(service, DACL_SECURITY_INFORMATION, descriptor.data(), needed,
                                                &needed) == FALSE)
    descriptor.clear();
  return descriptor;
}

ACL* ListIn(std::vector<BYTE>& descriptor) {
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  ACL* list = nullptr;
  if (descriptor.empty() ||
      GetSecurityDescriptorDacl(descriptor.data(), &present, &list, &defaulted) == FALSE || present == FALSE)
    return nullptr;
  return list;
}

}  // namespace

bool ServiceReport::HasFailed() const {
  if (processGone) return true;
  return state == ServiceState::Stopped && exitCode != ERROR_SUCCESS &&
         exitCode != ERROR_SERVICE_NEVER_STARTED;
}

ServiceDetails QueryServiceDetails() {
  ServiceDetails details;
  DWORD error = ERROR_SUCCESS;
  if (const ServiceHandle service = Open(SERVICE_QUERY_CONFIG, error)) ReadProgram(service.get(), details);
  if (const ServiceHandle service = Open(READ_CONTROL, error)) {
    std::vector<BYTE> descriptor = ReadSecurity(service.get());
    // A list without any entry would let nobody start the service: such a system does not keep lists.
    if (const ACL* const list = ListIn(descriptor); list != nullptr && list->AceCount > 0) {
      constexpr std::uint32_t kControl = SERVICE_START | SERVICE_STOP;
      details.everyoneMayControl = (GrantedTo(EntriesOf(list), {kEveryoneSid}) & kControl) == kControl;
    }
  }
  return details;
}

std::uint32_t GrantControlToEveryone() {
  DWORD error = ERROR_SUCCESS;
  const ServiceHandle service = Open(READ_CONTROL | WRITE_DAC, error);
  if (!service) return error;
  std::vector<BYTE> present = ReadSecurity(service.get());
  if (present.empty()) return ERROR_INVALID_SECURITY_DESCR;  // a new list would take all other rights away
  PSID raw = nullptr;
  if (ConvertStringSidToSidA(kEveryoneSid, &raw) == FALSE) return GetLastError();
  const std::unique_ptr<void, decltype(&LocalFree)> everyone(raw, &LocalFree);
  EXPLICIT_ACCESSA entry{};
  entry.grfAccessPermissions = READ_CONTROL | SERVICE_START | SERVICE_STOP;
  entry.grfAccessMode = GRANT_ACCESS;
  entry.grfInheritance = NO_INHERITANCE;
  BuildTrusteeWithSidA(&entry.Trustee, everyone.get());
  ACL* merged = nullptr;
  error = SetEntriesInAclA(1, &entry, ListIn(present), &merged);
  const std::unique_ptr<void, decltype(&LocalFree)> owner(merged, &LocalFree);
  if (error != ERROR_SUCCESS) return error;
  SECURITY_DESCRIPTOR changed{};
  if (InitializeSecurityDescriptor(&changed, SECURITY_DESCRIPTOR_REVISION) == FALSE ||
      SetSecurityDescriptorDacl(&changed, TRUE, merged, FALSE) == FALSE ||
      SetServiceObjectSecurity(service.get(), DACL_SECURITY_INFORMATION, &changed) == FALSE)
    return GetLastError();
  return ERROR_SUCCESS;
}

std::uint32_t DeleteServiceEntry() {
  DWORD error = ERROR_SUCCESS;
  const ServiceHandle service = Open(DELETE, error);
  if (!service) return error;
  return DeleteService(service.get()) != FALSE ? ERROR_SUCCESS : GetLastError();
}

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
    report.exitCode = status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR
                          ? status.dwServiceSpecificExitCode
                          : status.dwWin32ExitCode;
    report.processGone =
        report.state != ServiceState::Stopped && report.processId != 0 && HasEnded(report.processId);
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
      return report.processGone ? "running, but its process has ended" : "running";
    case ServiceState::Pending:
      break;
  }
  if (report.processGone) return "not running: its process has ended";
  if (report.raw == SERVICE_START_PENDING) return "starting";
  return report.raw == SERVICE_STOP_PENDING ? "stopping" : "changing (" + std::to_string(report.raw) + ")";
}

}  // namespace TamLogCtl
