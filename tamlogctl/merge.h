#pragma once

// The verbs merge and export: messages of several files, or of the running server, to one stream or one file.

#include <cstdint>
#include <string>
#include <vector>

#include "tamlogctl/common_options.h"
#include "tamlogctl/output_options.h"
#include "tamlogctl/selection_options.h"

namespace TamLogCtl {

struct MergeOptions : CommonOptions {
  SelectionOptions selection;
  OutputOptions output;
  std::vector<std::string> files;
  std::vector<std::string> labels;   // HOST=FILE: a file with a name for where it comes from
  std::vector<std::string> offsets;  // HOST=+1h: that host's clock is corrected by so much
  bool quiet = false;
};

struct ExportOptions : CommonOptions {
  SelectionOptions selection;
  OutputOptions output;
  std::string target;
  std::vector<std::string> files;  // none: the running server's log
  bool asLog = false;              // a log file instead of text
  std::uint32_t capacity = 0;      // of that; 0: that of the source
  bool force = false;
  bool quiet = false;
};

int MergeFiles(const MergeOptions& options);
int ExportMessages(const ExportOptions& options);

}  // namespace TamLogCtl
