#pragma once

// The verb status: what a running server says of itself, and what its log shows.

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct StatusOptions : CommonOptions {
  bool json = false;
};

// Returns the program's exit code and has said on stderr what went wrong.
int ShowStatus(const StatusOptions& options);

}  // namespace TamLogCtl
