#pragma once

// The verb export: messages of copied log files, or of the running server, to one file; with --follow to one
// file after the other.

#include <cstdint>
#include <optional>
#include <string>

#include "tamlogctl/read/reading_options.h"
#include "tamlogctl/read/rotating_file.h"

namespace TamLogCtl {

struct ExportOptions : ReadingOptions {
  std::string target;
  bool asLog = false;          // write a log file instead of text
  std::uint32_t capacity = 0;  // of that log file; 0: the capacity of the source
  bool force = false;          // replace the target if it exists

  bool follow = false;
  RotationLimits rotation;
  std::uint32_t intervalMs = 100;
  std::optional<double> forSeconds;
  bool ordered = false;
};

// Each returns the program's exit code; every failure has been reported on stderr.
int ExportMessages(const ExportOptions& options);
int FollowExport(const ExportOptions& options);  // with --follow

}  // namespace TamLogCtl
