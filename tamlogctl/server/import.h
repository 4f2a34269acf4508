#pragma once

// The verb import: submits the messages of files again, with their own times.

#include <cstdint>
#include <string>
#include <vector>

#include "tamlogctl/server/import_options.h"

namespace TamLogCtl {

struct ImportOptions : ReadingFilesOptions {
  std::vector<std::string> files;
  std::uint32_t retrySeconds = 30;  // how long to wait for a server that is gone ...
  bool waitAtStart = false;         // ... also for one that is not there at the start
  bool again = false;               // send messages that the log already holds
  bool quiet = false;
};

// Returns the exit code, and explains a failure on stderr. 1: not all messages are in the log.
int ImportFiles(const ImportOptions& options);

}  // namespace TamLogCtl
