#pragma once

// The verb status: shows the answers of a running server and the state of its shared log.

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct StatusOptions : CommonOptions {
  bool json = false;
};

// Returns the exit code: 0 the server answers and shares its log, 3 it is not running, 4 access denied, 5
// only one of the two works, 7 the log is damaged.
int ShowStatus(const StatusOptions& options);

}  // namespace TamLogCtl
