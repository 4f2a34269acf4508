#pragma once

// The verbs merge and export: messages of several files, or of the running server, to one stream or one file.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/message/status.h"
#include "tamlogctl/base/common_options.h"
#include "tamlogctl/base/output_options.h"
#include "tamlogctl/read/reading_options.h"
#include "tamlogctl/read/rotating_file.h"
#include "tamlogctl/select/selection_options.h"

namespace TamLogCtl {

struct MergeOptions : CommonOptions {
  SelectionOptions selection;
  OutputOptions output;
  std::vector<std::string> files;
  std::vector<std::string> labels;   // HOST=FILE: a file with a name for where it comes from
  std::vector<std::string> offsets;  // HOST=+1h: that host's clock is corrected by so much
  bool quiet = false;
};

struct ExportOptions : ReadingOptions {
  std::string target;
  bool asLog = false;          // a log file instead of text
  std::uint32_t capacity = 0;  // of that; 0: that of the source
  bool force = false;

  bool follow = false;
  RotationLimits rotation;
  std::uint32_t intervalMs = 100;
  std::optional<double> forSeconds;
  bool ordered = false;
};

int MergeFiles(const MergeOptions& options);
int ExportMessages(const ExportOptions& options);

// export --follow: goes on with what comes, into files that are put aside one after the other.
int FollowExport(const ExportOptions& options);

// Says on stderr why the file `target` was not written; returns the exit code.
int ExplainTarget(const std::string& target, TamLogClient::Status status);

}  // namespace TamLogCtl
