#pragma once

// The verb verify: is a log file whole, and would a server take it over?

#include <string>
#include <vector>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct VerifyVerbOptions : CommonOptions {
  std::vector<std::string> files;
  bool live = false;
  bool all = false;     // list every finding
  bool strict = false;  // what a server would not accept is a failure even when it is no damage
  bool quiet = false;
  bool json = false;
};

int VerifyFiles(const VerifyVerbOptions& options);

}  // namespace TamLogCtl
