#pragma once

// The verbs show and follow: messages, of a running server or of copied files.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tamlogctl/common_options.h"
#include "tamlogctl/events.h"
#include "tamlogctl/output_options.h"
#include "tamlogctl/selection_options.h"

namespace TamLogCtl {

struct ShowOptions : CommonOptions {
  SelectionOptions selection;
  OutputOptions output;
  std::optional<std::size_t> last;  // nothing: all
  bool reverse = false;
  bool follow = false;
  std::size_t before = 0;  // messages of context
  std::size_t after = 0;
  bool count = false;  // say how many, and print none
  std::vector<std::string> highlights;
  std::vector<std::string> files;  // none: the running server's log
  std::string cursorFile;
  std::string afterCursor;
  bool showCursor = false;
  std::uint32_t intervalMs = 100;
  std::optional<double> forSeconds;
  bool ordered = false;
  EventStyle events = EventStyle::Text;
  bool noPager = false;
  bool quiet = false;

  EventTeller Teller() const { return EventTeller(quiet ? EventStyle::None : events); }
};

// Each returns the program's exit code and has said on stderr what went wrong.
int ShowFiles(const ShowOptions& options);
int ShowLive(const ShowOptions& options);

}  // namespace TamLogCtl
