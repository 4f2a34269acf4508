#pragma once

// What show, follow and export have in common: which messages are read, how they are written, and what is
// told.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tamlogctl/base/common_options.h"
#include "tamlogctl/base/output_options.h"
#include "tamlogctl/read/events.h"
#include "tamlogctl/select/selection_options.h"

namespace TamLogCtl {

struct ReadingOptions : CommonOptions {
  SelectionOptions selection;
  OutputOptions output;
  std::vector<std::string> files;   // none: the running server's log
  std::optional<std::size_t> last;  // nothing: all
  std::size_t before = 0;           // messages of context
  std::size_t after = 0;
  std::string cursorFile;
  std::string afterCursor;
  bool showCursor = false;
  EventStyle events = EventStyle::Text;
  bool quiet = false;

  EventTeller Teller() const { return EventTeller(quiet ? EventStyle::None : events); }
};

// Which options contradict a cursor, "-U: ..."; empty when none do.
std::string CursorProblem(const ReadingOptions& options);

// Short, full and cat: formats in which `--` may stand between messages.
bool IsTextFormat(const ReadingOptions& options);

}  // namespace TamLogCtl
