#pragma once

// Turns an object into a Windows service: installs and removes it, runs the control dispatcher, handles
// control requests of the service control manager and reports the service's status. One process hosts one
// service.
//
// controlLock is held while a control request is handled, so OnStop, OnPause and OnContinue never overlap;
// OnStart runs without it.

#include <cstdint>
#include <memory>
#include <string>

#include "util/sync.h"

namespace TamLogUtil::Services {

class Service {
 public:
  Service();
  // May throw: a subclass stops a service that is still running.
  virtual ~Service() noexcept(false);
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // The four handlers. They throw ExceptionBase on failure. The base versions do nothing.
  virtual void OnStart();
  virtual void OnStop();
  virtual void OnPause();
  virtual void OnContinue();

  // To be called before Install, Remove or RunDispatcher, on one thread.
  void SetServiceName(const std::string& name);
  void SetDisplayName(const std::string& name);
  void SetDescription(const std::string& text);
  // Stores the path between double quotation marks.
  void SetExecutablePath(const std::string& path);

  // Sets the instance that receives the manager's callbacks; not owned. To be set before RunDispatcher and
  // not changed later.
  static void SetActiveInstance(Service* service);

  // Registers the service for automatic start under the local system account and grants everyone the right to
  // start and stop it (a failure of that last step is silent). ExceptionWindows "OpenSCManager() failed",
  // "CreateService() failed", "ChangeServiceConfig2() failed".
  void Install();
  // Marks the registration for deletion; a running service keeps running. ExceptionWindows "OpenSCManager()
  // failed", "OpenService() failed", "DeleteService() failed".
  void Remove();
  // Blocks until the service has stopped and no control request is being handled any more. ExceptionWindows
  // "StartServiceCtrlDispatcher() failed", for example when the manager did not start this process.
  void RunDispatcher();
  // Reports the current state to the manager. "Failed to report status" with "SetServiceStatus failed" as its
  // cause.
  void ReportStatus();

  // The manager's callbacks. Public, so that tests can send controls that the manager never delivers. Neither
  // throws ExceptionBase. ServiceMain ends the process when the start fails.
  static void ServiceMain();
  static void HandleControl(std::uint32_t control);

 private:
  struct Status;

  void Start();
  void Dispatch(std::uint32_t control);
  void EnterState(std::uint32_t state);

  Mutex controlLock;
  std::string serviceName;
  std::string executablePath;
  std::string displayName;
  std::string description;
  std::unique_ptr<Status> status;
};

}  // namespace TamLogUtil::Services
