#pragma once

// The verb verify: checks whether a log file is damaged, and whether a server would keep it.

#include <string>
#include <vector>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct VerifyVerbOptions : CommonOptions {
  std::vector<std::string> files;
  bool live = false;
  bool all = false;     // list every finding
  bool strict = false;  // fail also if a server would not keep the file for a reason that is no damage
  bool quiet = false;
  bool json = false;
  bool noPager = false;
};

// Returns the program's exit code: kNegative for damage. Every failure has been reported on stderr.
int VerifyFiles(const VerifyVerbOptions& options);

}  // namespace TamLogCtl
