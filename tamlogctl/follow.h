#pragma once

// Following the log of a running server, for show -f and follow.

#include "client/status.h"
#include "tamlogctl/printer.h"
#include "tamlogctl/reading_position.h"
#include "tamlogctl/show.h"

namespace TamLogCtl {

// Prints what there is and what comes, until it is interrupted, its time is over, or the output fails. The
// program's exit code.
int Follow(const ShowOptions& options, Printer& printer, ReadingPosition& position);

// Says on stderr why the running server's log cannot be read; the program's exit code.
int ExplainStatus(TamLogClient::Status status);

}  // namespace TamLogCtl
