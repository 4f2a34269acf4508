#pragma once

// The verb import: hands the messages of files in once more, with their own times.

#include <cstdint>
#include <string>
#include <vector>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct ImportOptions : CommonOptions {
  std::vector<std::string> files;
  std::string input = "auto";       // auto, log, json or tsv
  std::uint32_t retrySeconds = 30;  // how long a lost server is waited for
  bool quiet = false;
};

int ImportFiles(const ImportOptions& options);

}  // namespace TamLogCtl
