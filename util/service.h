#pragma once

// Turns an object into a Windows service: installs and removes it, runs the control dispatcher, answers the
// service control manager and keeps and reports the service's status. One process hosts one service.
//
// controlLock is held while a control request is handled, so handlers never overlap; OnStart is not under it.

#include <cstdint>
#include <memory>
#include <string>

#include "util/sync.h"

namespace TamLogUtil::Services {

class Service {
 public:
  Service();
  // May throw: a subclass stops a service that still runs.
  virtual ~Service() noexcept(false);
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // The four handlers; they report failure by throwing ExceptionBase. The base versions do nothing.
  virtual void OnStart();
  virtual void OnStop();
  virtual void OnPause();
  virtual void OnContinue();

  // Called before Install, Remove or RunDispatcher, on one thread.
  void SetServiceName(const std::string& name);
  void SetDisplayName(const std::string& name);
  void SetDescription(const std::string& text);
  // Stores the path between double quotation marks.
  void SetExecutablePath(const std::string& path);

  // The instance that the manager's callbacks reach; not owned. Set before RunDispatcher and left alone after
  // it.
  static void SetActiveInstance(Service* service);

  // Registers the service for automatic start under the local system account and gives everyone the right to
  // start and stop it (a failure of that last step is silent). ExceptionWindows "OpenSCManager() failed",
  // "CreateService() failed", "ChangeServiceConfig2() failed".
  void Install();
  // Marks the registration for deletion; a running service goes on. ExceptionWindows "OpenSCManager()
  // failed", "OpenService() failed", "DeleteService() failed".
  void Remove();
  // Blocks until the service has stopped and no control request is being handled any more. ExceptionWindows
  // "StartServiceCtrlDispatcher() failed", for example when the manager did not start this process.
  void RunDispatcher();
  // Passes the current state to the manager. "Failed to report status" with "SetServiceStatus failed" as its
  // cause.
  void ReportStatus();

  // What the manager calls. Public, so that controls which it never delivers can be tried directly; neither
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
