#pragma once

// The options that show, follow and export share: which messages are read, how they are written, and which
// events are reported.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tamlogctl/base/common_options.h"
#include "tamlogctl/base/output_options.h"
#include "tamlogctl/read/events.h"
#include "tamlogctl/select/message_choice.h"
#include "tamlogctl/select/selection_options.h"

namespace TamLogCtl {

struct ReadingOptions : CommonOptions {
  SelectionOptions selection;
  OutputOptions output;
  std::vector<std::string> files;  // empty: the log of the running server
  MessageLimit limit;
  std::size_t before = 0;  // messages of context around each match
  std::size_t after = 0;
  std::string cursorFile;
  std::string afterCursor;
  bool showCursor = false;
  EventStyle events = EventStyle::Text;
  bool quiet = false;

  EventReporter Reporter() const { return EventReporter(quiet ? EventStyle::None : events); }
};

// Returns which options contradict a cursor, "-U: ..."; empty when none do.
std::string CursorProblem(const ReadingOptions& options);

// Returns what --count prints.
std::string CountText(std::size_t count, const OutputOptions& output);

// Returns whether the format is short, full or cat: formats in which `--` may stand between messages.
bool IsTextFormat(const ReadingOptions& options);

}  // namespace TamLogCtl
