#pragma once

// The verb repair: a new log file with all that can be saved of a damaged one.

#include <cstdint>
#include <string>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct RepairVerbOptions : CommonOptions {
  std::string file;
  std::string output;
  bool carve = false;
  bool unique = false;
  std::uint32_t capacity = 0;  // 0: the damaged file's own
  bool force = false;
  bool all = false;  // list every loss
  bool quiet = false;
};

int RepairFile(const RepairVerbOptions& options);

}  // namespace TamLogCtl
