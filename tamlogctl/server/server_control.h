#pragma once

// The verb server: installs, starts, stops and removes the service, and shows its state, through the service
// manager.

#include <cstdint>
#include <string>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct ServerOptions : CommonOptions {
  std::uint32_t waitMs = 60000;  // for the state to be reached
  bool json = false;
  std::string
      program;  // of install: the server's program; empty: TamLogServer.exe in this program's directory
};

// Each returns the exit code, and explains a failure on stderr: 3 not installed, 4 access denied, 5 the state
// was not reached in time.
int StartServer(const ServerOptions& options);
int StopServer(const ServerOptions& options);
int RestartServer(const ServerOptions& options);
int InstallServer(const ServerOptions& options);
// Stops the service and removes its registration. Settings and log file stay.
int RemoveServer(const ServerOptions& options);
// Shows the state. Exit code 0 running, 1 installed and not running, 3 not installed, 4 access denied.
int ShowServerState(const ServerOptions& options);

}  // namespace TamLogCtl
