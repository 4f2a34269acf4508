#pragma once

// The verb clear: empties the log.

#include <string>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct ClearOptions : CommonOptions {
  std::string backup;  // where the messages are saved first; empty: nowhere
  bool yes = false;    // without asking
  bool wait = true;    // until the restart that follows is over
};

// Returns the program's exit code and has said on stderr what went wrong. 1: the user said no.
int Clear(const ClearOptions& given);

}  // namespace TamLogCtl
