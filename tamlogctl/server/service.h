#pragma once

// The log server as the service manager sees it.

#include <cstdint>
#include <optional>
#include <string>

#include "tamlogctl/server/service_state.h"

namespace TamLogCtl {

struct ServiceReport {
  ServiceState state = ServiceState::Unknown;
  std::uint32_t raw = 0;        // the service manager's own number of the state
  std::uint32_t processId = 0;  // 0 when it is not running
  bool processGone = false;     // the process has ended, and the service manager has not noticed
  std::uint32_t exitCode = 0;   // of the last run, when stopped; a system error code

  // Returns whether the service was started and its process has ended by a failure.
  bool HasFailed() const;
};

ServiceReport QueryService();

struct ServiceDetails {
  std::string program;                     // UTF-8; empty when it is not known
  bool programMissing = false;             // no such file
  std::optional<bool> everyoneMayControl;  // every user may start and stop the service
};

ServiceDetails QueryServiceDetails();

// Request a start or a stop, and do not wait for it. Return 0 or the system's error code.
std::uint32_t RequestServiceStart();
std::uint32_t RequestServiceStop();

// Lets every user start and stop the service, as its installation does. Returns 0 or the system's error code.
std::uint32_t GrantControlToEveryone();

// Removes the service's registration. Returns 0 or the system's error code.
std::uint32_t DeleteServiceEntry();

// Returns "running", "stopped", "starting", "stopping", "not installed" and the like.
std::string ServiceText(const ServiceReport& report);

}  // namespace TamLogCtl
