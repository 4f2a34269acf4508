#pragma once

// The verbs show and follow: print messages of the running server or of copied files.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tamlogctl/read/reading_options.h"

namespace TamLogCtl {

struct ShowOptions : ReadingOptions {
  bool reverse = false;
  bool follow = false;
  bool count = false;  // print the number of messages instead of the messages
  std::vector<std::string> highlights;
  std::uint32_t intervalMs = 100;
  std::optional<double> forSeconds;
  bool ordered = false;
  bool noPager = false;
};

// Each returns the program's exit code; every failure has been reported on stderr.
int ShowFiles(const ShowOptions& options);
int ShowLive(const ShowOptions& options);

}  // namespace TamLogCtl
