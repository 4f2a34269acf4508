#pragma once

// The verb server: starts and stops the service, and shows its state, through the service manager.

#include <cstdint>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct ServerOptions : CommonOptions {
  std::uint32_t waitMs = 60000;  // for the state to be reached
  bool json = false;
};

// Each returns the exit code, and explains a failure on stderr: 3 not installed, 4 access denied, 5 the state
// was not reached in time.
int StartServer(const ServerOptions& options);
int StopServer(const ServerOptions& options);
int RestartServer(const ServerOptions& options);
// Shows the state. Exit code 0 running, 1 installed and not running, 3 not installed, 4 access denied.
int ShowServerState(const ServerOptions& options);

}  // namespace TamLogCtl
