#pragma once

// The verb convert: the messages of files as a log file that a server accepts. Needs no server.

#include <cstdint>
#include <string>
#include <vector>

#include "tamlogctl/server/import_options.h"

namespace TamLogCtl {

struct ConvertOptions : ReadingFilesOptions {
  std::vector<std::string> files;  // the last one is the new log file
  std::uint32_t capacity = 0;      // 0: 50,000, or as many as there are messages
  bool force = false;              // replace the new file if it exists
  bool quiet = false;
};

// Returns the exit code, and explains a failure on stderr.
int ConvertFiles(const ConvertOptions& options);

}  // namespace TamLogCtl
