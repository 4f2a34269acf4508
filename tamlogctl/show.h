#pragma once

// The verbs show and follow: messages, of a running server or of copied files.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tamlogctl/common_options.h"
#include "tamlogctl/output_options.h"
#include "tamlogctl/selection_options.h"

namespace TamLogCtl {

struct ShowOptions : CommonOptions {
  SelectionOptions selection;
  OutputOptions output;
  std::optional<std::size_t> last;  // nothing: all
  bool reverse = false;
  bool follow = false;
  std::vector<std::string> files;  // none: the running server's log
  std::uint32_t intervalMs = 100;
  std::optional<double> forSeconds;
  bool quiet = false;
};

// Each returns the program's exit code and has said on stderr what went wrong.
int ShowFiles(const ShowOptions& options);
int ShowLive(const ShowOptions& options);

}  // namespace TamLogCtl
