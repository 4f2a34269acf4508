#pragma once

// The verb clear: empties the log.

#include <string>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct ClearOptions : CommonOptions {
  std::string backup;  // the file in which the messages are saved first; empty: not saved
  bool yes = false;    // do not ask
  bool wait = true;    // until the restart that follows is over
};

// Returns the exit code, and explains a failure on stderr. 1: the user declined.
int Clear(const ClearOptions& given);

}  // namespace TamLogCtl
