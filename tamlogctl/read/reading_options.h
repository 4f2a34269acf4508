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
#include "tamlogctl/select/selection_options.h"

namespace TamLogCtl {

struct ReadingOptions : CommonOptions {
  SelectionOptions selection;
  OutputOptions output;
  std::vector<std::string> files;   // empty: the log of the running server
  std::optional<std::size_t> last;  // empty: all
  std::size_t before = 0;           // messages of context around each match
  std::size_t after = 0;
  std::string cursorFile;
  std::string afterCursor;
  bool showCursor = false;
  EventStyle events = EventStyle::Text;
  bool quiet = false;

  EventReporter Reporter() const { return EventReporter(quiet ? EventStyle::None : events); }
};

// -n; `purpose` is what the help says of it.
void DefineCount(CLI::App& verb, std::optional<std::size_t>& last, const char* purpose);

// -A, -B and -C.
void DefineContext(CLI::App& verb, ReadingOptions& to);

// --cursor-file, --after-cursor and --show-cursor.
void DefineCursors(CLI::App& verb, ReadingOptions& to);

void DefineEvents(CLI::App& verb, ReadingOptions& to);

// After parsing: cursors that contradict each other, or what else was asked for, are a usage error.
void CheckCursors(const ReadingOptions& options);

// Short, full and cat: formats in which `--` may stand between messages.
bool IsTextFormat(const ReadingOptions& options);

}  // namespace TamLogCtl
