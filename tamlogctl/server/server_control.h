#pragma once

// The verb server: starts, stops and looks at the service, through the service manager.

#include <cstdint>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct ServerOptions : CommonOptions {
  std::uint32_t waitMs = 60000;  // until the state is reached
  bool json = false;
};

// Each returns the program's exit code and has said on stderr what went wrong: 3 not installed, 4 access
// denied, 5 the state was not reached in time.
int StartServer(const ServerOptions& options);
int StopServer(const ServerOptions& options);
int RestartServer(const ServerOptions& options);
// 0 running, 1 installed and not running, 3 not installed.
int ShowServerState(const ServerOptions& options);

}  // namespace TamLogCtl
