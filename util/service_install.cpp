#include <memory>
#include <utility>

#include "util/exceptions.h"
#include "util/service.h"
#include "util/service_handle.h"
#include "util/win32.h"

// Must follow windows.h.
#include <aclapi.h>

namespace TamLogUtil::Services {

using Exceptions::ExceptionWindows;

namespace {

// Read control, service start, service stop.
constexpr DWORD kEveryoneRights = 0x20030;

struct HeapDeleter {
  void operator()(void* memory) const { HeapFree(GetProcessHeap(), 0, memory); }
};
struct LocalDeleter {
  void operator()(ACL* list) const { LocalFree(list); }
};
using HeapBuffer = std::unique_ptr<void, HeapDeleter>;
using LocalAcl = std::unique_ptr<ACL, LocalDeleter>;

SC_HANDLE Native(const ServiceHandle& handle) {
  return static_cast<SC_HANDLE>(handle.Get());
}

SC_HANDLE OpenManager() {
  const SC_HANDLE manager = OpenSCManagerA(nullptr, SERVICES_ACTIVE_DATABASEA, SC_MANAGER_ALL_ACCESS);
  if (manager == nullptr) throw ExceptionWindows("OpenSCManager() failed");
  return manager;
}

// The service's security descriptor with its access list; empty on failure.
HeapBuffer QueryAccessList(SC_HANDLE service) {
  DWORD needed = 0;
  PSECURITY_DESCRIPTOR none = nullptr;
  // Some systems refuse a null buffer even if they write nothing to it.
  if (QueryServiceObjectSecurity(service, DACL_SECURITY_INFORMATION, &none, 0, &needed) != 0 ||
      GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
    return nullptr;
  }
  HeapBuffer descriptor(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, needed));
  if (descriptor == nullptr || QueryServiceObjectSecurity(service, DACL_SECURITY_INFORMATION,
                                                          descriptor.get(), needed, &needed) == 0) {
    return nullptr;
  }
  return descriptor;
}

// `existing` with the right to start and stop added for everyone; empty on failure.
LocalAcl WithEveryone(ACL* existing) {
  char everyone[] = "EVERYONE";
  EXPLICIT_ACCESSA entry{};
  entry.grfAccessPermissions = kEveryoneRights;
  entry.grfAccessMode = GRANT_ACCESS;
  entry.grfInheritance = NO_INHERITANCE;
  entry.Trustee.TrusteeForm = TRUSTEE_IS_NAME;
  entry.Trustee.ptstrName = everyone;
  ACL* merged = nullptr;
  if (SetEntriesInAclA(1, &entry, existing, &merged) != ERROR_SUCCESS) return nullptr;
  return LocalAcl(merged);
}

// Lets every user start and stop the service and keeps the other rights of its list. A failure is silent: the
// service works without it, and an installation must not fail halfway because of it.
void OpenToEveryone(SC_HANDLE service) {
  const HeapBuffer current = QueryAccessList(service);
  if (current == nullptr) return;
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  ACL* existing = nullptr;
  if (GetSecurityDescriptorDacl(current.get(), &present, &existing, &defaulted) == 0) return;
  const LocalAcl merged = WithEveryone(existing);
  if (merged == nullptr) return;
  SECURITY_DESCRIPTOR changed{};
  if (InitializeSecurityDescriptor(&changed, SECURITY_DESCRIPTOR_REVISION) == 0) return;
  if (SetSecurityDescriptorDacl(&changed, TRUE, merged.get(), FALSE) == 0) return;
  SetServiceObjectSecurity(service, DACL_SECURITY_INFORMATION, &changed);
}

}  // namespace

ServiceHandle::ServiceHandle(NativeHandle owned) : handle(owned) {}

ServiceHandle::~ServiceHandle() noexcept(false) {
  unwindCheck.Finish([this] { Replace(nullptr); });
}

void ServiceHandle::Replace(NativeHandle next) {
  auto* const closed = static_cast<SC_HANDLE>(std::exchange(handle, next));
  if (closed != nullptr && CloseServiceHandle(closed) == 0) {
    throw ExceptionWindows("CloseServiceHandle() failed:");
  }
}

void Service::Install() {
  const ServiceHandle manager(OpenManager());
  const ServiceHandle service(CreateServiceA(Native(manager), serviceName.c_str(), displayName.c_str(),
                                             SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                             SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, executablePath.c_str(),
                                             nullptr, nullptr, nullptr, nullptr, nullptr));
  if (service.Get() == nullptr) throw ExceptionWindows("CreateService() failed");
  SERVICE_DESCRIPTIONA text{description.data()};
  if (ChangeServiceConfig2A(Native(service), SERVICE_CONFIG_DESCRIPTION, &text) == 0) {
    throw ExceptionWindows("ChangeServiceConfig2() failed");
  }
  OpenToEveryone(Native(service));
}

void Service::Remove() {
  const ServiceHandle manager(OpenManager());
  const ServiceHandle service(OpenServiceA(Native(manager), serviceName.c_str(), SERVICE_ALL_ACCESS));
  if (service.Get() == nullptr) throw ExceptionWindows("OpenService() failed");
  if (DeleteService(Native(service)) == 0) throw ExceptionWindows("DeleteService() failed");
}

}  // namespace TamLogUtil::Services
