#include "util/service.h"

#include <atomic>
#include <cstdlib>
#include <vector>

#include "util/diagnostic_log.h"
#include "util/exceptions.h"
#include "util/leaf_lock.h"
#include "util/win32.h"

namespace TamLogUtil::Services {

using Exceptions::ExceptionBase;
using Exceptions::ExceptionWindows;

namespace {

std::atomic<Service*> activeInstance{nullptr};

void WINAPI ServiceMainCallback(DWORD /*count*/, char** /*arguments*/) {
  Service::ServiceMain();
}

void WINAPI ControlCallback(DWORD control) {
  Service::HandleControl(control);
}

}  // namespace

// The status last reported. It has its own lock because a control may arrive while the service main still
// reports the start.
struct Service::Status {
  LeafLock lock;
  SERVICE_STATUS record GUARDED_BY(lock) = {};
  SERVICE_STATUS_HANDLE handle GUARDED_BY(lock) = nullptr;
};

Service::Service() : status(std::make_unique<Status>()) {}

Service::~Service() noexcept(false) = default;

void Service::OnStart() {}
void Service::OnStop() {}
void Service::OnPause() {}
void Service::OnContinue() {}

void Service::SetServiceName(const std::string& name) {
  serviceName = name;
}

void Service::SetDisplayName(const std::string& name) {
  displayName = name;
}

void Service::SetDescription(const std::string& text) {
  description = text;
}

void Service::SetExecutablePath(const std::string& path) {
  executablePath = '"' + path + '"';
}

void Service::SetActiveInstance(Service* service) {
  activeInstance = service;
}

void Service::RunDispatcher() {
  std::vector<char> name(serviceName.c_str(), serviceName.c_str() + serviceName.size() + 1);
  const SERVICE_TABLE_ENTRYA table[] = {{name.data(), &ServiceMainCallback}, {nullptr, nullptr}};
  if (StartServiceCtrlDispatcherA(table) == 0) {
    throw ExceptionWindows("StartServiceCtrlDispatcher() failed");
  }
  // The dispatcher returns as soon as "stopped" is reported, while the handler that reported it is still
  // running. The caller destroys this object next, so wait for that handler.
  Mutex::Access access(controlLock, Timeout::Infinite);
}

void Service::ReportStatus() {
  SERVICE_STATUS record{};
  SERVICE_STATUS_HANDLE handle = nullptr;
  {
    LeafLock::Guard guard(status->lock);
    const DWORD state = status->record.dwCurrentState;
    const bool settled = state == SERVICE_RUNNING || state == SERVICE_STOPPED;
    status->record.dwCheckPoint = settled ? 0 : status->record.dwCheckPoint + 1;
    record = status->record;
    handle = status->handle;
  }
  if (SetServiceStatus(handle, &record) == 0) {
    const ExceptionWindows cause("SetServiceStatus failed");
    throw ExceptionBase("Failed to report status", &cause);
  }
}

void Service::EnterState(std::uint32_t state) {
  {
    LeafLock::Guard guard(status->lock);
    status->record.dwCurrentState = state;
  }
  ReportStatus();
}

void Service::ServiceMain() {
  try {
    Service* const service = activeInstance;
    if (service == nullptr) {
      throw ExceptionBase("Service started before calling SetActiveInstance() on an instance");
    }
    service->Start();
  } catch (const ExceptionBase& failure) {
    WriteLog("An exception has occured in the service's main : " + failure.Compose("\n"));
    WriteLog("Aborting");
    std::abort();
  }
}

void Service::Start() {
  const SERVICE_STATUS_HANDLE handle = RegisterServiceCtrlHandlerA(serviceName.c_str(), &ControlCallback);
  if (handle == nullptr) {
    const ExceptionWindows cause("RegisterServiceCtrlHandler failed");
    throw ExceptionBase("Failed to start service", &cause);
  }
  {
    LeafLock::Guard guard(status->lock);
    status->handle = handle;
    status->record = {};
    status->record.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status->record.dwCurrentState = SERVICE_STOPPED;
    status->record.dwControlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN;
  }
  EnterState(SERVICE_START_PENDING);
  OnStart();
  EnterState(SERVICE_RUNNING);
}

void Service::HandleControl(std::uint32_t control) {
  try {
    Service* const service = activeInstance;
    if (service == nullptr) {
      throw ExceptionBase("Service control message received but no active instance is specified");
    }
    service->Dispatch(control);
  } catch (const ExceptionBase& failure) {
    WriteLog("An exception has occured in the service's control method : " + failure.Compose("\n"));
  }
}

// Releasing controlLock is the last access to this object (see RunDispatcher).
void Service::Dispatch(std::uint32_t control) {
  Mutex::Access access(controlLock, Timeout::Infinite);
  switch (control) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
      EnterState(SERVICE_STOP_PENDING);
      OnStop();
      EnterState(SERVICE_STOPPED);
      break;
    // Pause and continue are not accepted by the reported status; handled in case they arrive.
    case SERVICE_CONTROL_PAUSE:
      EnterState(SERVICE_PAUSE_PENDING);
      OnPause();
      EnterState(SERVICE_PAUSED);
      break;
    case SERVICE_CONTROL_CONTINUE:
      EnterState(SERVICE_CONTINUE_PENDING);
      OnContinue();
      EnterState(SERVICE_RUNNING);
      break;
    case SERVICE_CONTROL_INTERROGATE:
      ReportStatus();
      break;
    default:
      break;
  }
}

}  // namespace TamLogUtil::Services
