#pragma once

// The registration of the service TamLogServer. Failures throw SetupError.

#include <optional>
#include <string>

namespace TamLogSetup {

struct ServiceEntry {
  std::wstring command;  // as registered, with quotation marks
  bool running = false;  // or about to run
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
// The manager restarts the service after 5 s, 30 s, and 60 s each further time; a day without failure begins
// anew.
void SetRecovery();

// Whether the driver's device exists; without it the service does not start.
bool DriverDeviceExists();

}  // namespace TamLogSetup
