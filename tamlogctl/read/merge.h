#pragma once

// The verb merge: the messages of several log files as one stream, in time order.

#include <string>
#include <vector>

#include "tamlogctl/base/common_options.h"
#include "tamlogctl/base/output_options.h"
#include "tamlogctl/select/message_choice.h"
#include "tamlogctl/select/selection_options.h"

namespace TamLogCtl {

struct MergeOptions : CommonOptions {
  SelectionOptions selection;
  OutputOptions output;
  std::vector<std::string> files;
  std::vector<std::string> labels;   // HOST=FILE: a file and the name of the machine it comes from
  std::vector<std::string> offsets;  // HOST=+1h: added to the times of that machine's messages
  MessageLimit limit;
  bool reverse = false;
  bool count = false;  // print the number of messages instead of the messages
  bool quiet = false;
  bool noPager = false;
};

// Returns the program's exit code; every failure has been reported on stderr.
int MergeFiles(const MergeOptions& options);

}  // namespace TamLogCtl
