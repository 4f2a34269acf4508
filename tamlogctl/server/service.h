#pragma once

// The log server as the service manager sees it.

#include <cstdint>
#include <string>

#include "tamlogctl/server/service_state.h"

namespace TamLogCtl {

struct ServiceReport {
  ServiceState state = ServiceState::Unknown;
  std::uint32_t raw = 0;        // the service manager's own number of the state
  std::uint32_t processId = 0;  // 0 when it is not running
};

ServiceReport QueryService();

// Request a start or a stop, and do not wait for it. Return 0 or the system's error code.
std::uint32_t RequestServiceStart();
std::uint32_t RequestServiceStop();

// Returns "running", "stopped", "starting", "stopping", "not installed" and the like.
std::string ServiceText(const ServiceReport& report);

}  // namespace TamLogCtl
