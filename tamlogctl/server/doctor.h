#pragma once

// The verb doctor: looks at everything that can be wrong with a server, and says how it is mended.

#include <cstdint>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct DoctorOptions : CommonOptions {
  bool json = false;
  bool unstick = false;          // mend what a dead reader or a half-open client left
  std::uint32_t watchMs = 2000;  // how long nobody may move until a reader counts as stuck
};

// Exit code 0 all is well, 1 something was found (also when it was mended), 3 no server, 4 access denied.
int Doctor(const DoctorOptions& options);

}  // namespace TamLogCtl
