#pragma once

// The verb repair: saves the messages of a damaged log file into a new one.

#include <cstdint>
#include <string>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct RepairVerbOptions : CommonOptions {
  std::string file;
  std::string output;
  bool carve = false;
  bool unique = false;
  std::uint32_t capacity = 0;  // 0: the capacity of the damaged file
  bool force = false;
  bool all = false;  // list every loss
  bool quiet = false;
};

// Returns the program's exit code; every failure has been reported on stderr.
int RepairFile(const RepairVerbOptions& options);

}  // namespace TamLogCtl
