#pragma once

// The output of show: prints the logs that were read, of files or of the running server.

#include <vector>

#include "tamlogctl/read/log_input.h"
#include "tamlogctl/read/printer.h"
#include "tamlogctl/read/reading_position.h"
#include "tamlogctl/read/show.h"

namespace TamLogCtl {

// Returns a ReadPart that reads as little as `printer` needs; `options` and `printer` have to outlive it.
ReadPart NewestPart(const ShowOptions& options, const Printer& printer);

// Prints the messages beyond `position`, in time order, and keeps the position: there is none with several
// logs. Prints nothing unless one of `logs`, which are not empty, could be read. Returns the exit code.
int PrintLogs(const ShowOptions& options, Printer& printer, ReadingPosition& position,
              const std::vector<LogInput>& logs);

// Returns the exit code of a finished output whose inputs had `exitCode`.
int EndOf(const Printer& printer, int exitCode);

}  // namespace TamLogCtl
