#pragma once

// The registration of the service TamLogServer. Failures throw SetupError.

#include <optional>
#include <string>
#include <vector>

namespace TamLogSetup {

// The actions of the manager after failures of the service.
struct Recovery {
  struct Action {
    int type = 0;             // SC_ACTION_TYPE
    unsigned long delay = 0;  // ms
    friend bool operator==(const Action&, const Action&) = default;
  };
  unsigned long resetPeriod = 0;  // s without failure after which it begins with the first action again
  std::wstring message;           // to users before a reboot
  std::wstring command;           // of an action that runs a program
  std::vector<Action> actions;    // the last one is repeated
  friend bool operator==(const Recovery&, const Recovery&) = default;
};

struct ServiceEntry {
  std::wstring command;              // as registered, with quotation marks
  unsigned long startType = 0;       // SERVICE_AUTO_START and so on
  bool running = false;              // or about to run
  std::optional<Recovery> recovery;  // empty where the system keeps none
};

// Empty when the service is not registered.
std::optional<ServiceEntry> QueryService();

// Stops the service and waits until its process has ended, so that its files can be replaced; at most 60 s. A
// service that is stopped already is no failure.
void StopService();
// Starts the service and waits until it reports that it runs; at most 30 s. A running one is no failure.
void StartService();

// Runs `program -install`, which registers the service with its texts and rights.
void RegisterService(const std::wstring& program);
// Deletes the registration; a missing one is no failure.
void DeleteService();
// Registers another command.
void SetCommand(const std::wstring& command);
// A restart of the service after 5 s, after 30 s, and after 60 s each further time; a day without failure
// begins with 5 s again.
Recovery PackageRecovery();
void SetRecovery(const Recovery& recovery);
// Sets command, start type and recovery of the registered service to those of `entry`.
void RestoreService(const ServiceEntry& entry);

// Whether the driver's device exists; without it the service does not start.
bool DriverDeviceExists();

}  // namespace TamLogSetup
