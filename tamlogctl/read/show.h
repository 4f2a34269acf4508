#pragma once

// The verbs show and follow: messages, of a running server or of copied files.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tamlogctl/read/reading_options.h"

namespace TamLogCtl {

struct ShowOptions : ReadingOptions {
  bool reverse = false;
  bool follow = false;
  bool count = false;  // say how many, and print none
  std::vector<std::string> highlights;
  std::uint32_t intervalMs = 100;
  std::optional<double> forSeconds;
  bool ordered = false;
  bool noPager = false;
};

// Each returns the program's exit code and has said on stderr what went wrong.
int ShowFiles(const ShowOptions& options);
int ShowLive(const ShowOptions& options);

}  // namespace TamLogCtl
