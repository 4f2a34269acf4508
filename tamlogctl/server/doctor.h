#pragma once

// The verb doctor: checks everything that can be wrong with a server, and reports how to fix it.

#include <cstdint>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct DoctorOptions : CommonOptions {
  bool json = false;
  bool unstick = false;          // release what a dead reader or a half-open client still holds
  bool restoreRights = false;    // let every user start and stop the service again
  std::uint32_t watchMs = 2000;  // a reader counts as stuck when nothing changes for so long
};

// Returns the exit code: 0 all is well, 1 something was found (fixed or not), 3 no server, 4 access denied.
int Doctor(const DoctorOptions& options);

}  // namespace TamLogCtl
