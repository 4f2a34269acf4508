#pragma once

// Reads the newest part of a log if that suffices: for the last few wanted messages, or those since a time.

#include <optional>

#include "client/log/log_snapshot.h"
#include "tamlogctl/read/log_input.h"
#include "tamlogctl/read/printer.h"
#include "tamlogctl/read/show.h"

namespace TamLogCtl {

// Returns a part of the log that contains every message that `printer` would print; nothing if the whole log
// has to be read.
std::optional<TamLogClient::LogSnapshot> ReadNewest(const ShowOptions& options, const Printer& printer,
                                                    const ReadTail& read);

}  // namespace TamLogCtl
