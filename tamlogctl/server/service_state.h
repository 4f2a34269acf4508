#pragma once

// The states of the server's service.

#include <cstdint>

namespace TamLogCtl {

enum class ServiceState : std::uint8_t {
  Unknown,  // the service manager could not be reached
  NotInstalled,
  Denied,  // the service manager denied access
  Stopped,
  Pending,  // starting or stopping
  Running,
};

// Returns advice to the user: "start it: tamlogctl server start". Empty for Running.
const char* ServiceAdvice(ServiceState state);

}  // namespace TamLogCtl
