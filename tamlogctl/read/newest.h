#pragma once

// Reads as little of a log as an answer needs: the last few messages that are wanted, or those since a time.

#include <cstddef>
#include <functional>
#include <optional>

#include "client/log/log_snapshot.h"
#include "client/log/log_tail.h"
#include "tamlogctl/read/printer.h"
#include "tamlogctl/read/show.h"

namespace TamLogCtl {

// Reads the newest `count` messages; false when it cannot be done.
using ReadTail = std::function<bool(std::size_t count, TamLogClient::LogTail& tail)>;

// A part of the log that holds everything that `printer` would print of the whole; nothing when the whole
// log has to be read.
std::optional<TamLogClient::LogSnapshot> ReadNewest(const ShowOptions& options, const Printer& printer,
                                                    const ReadTail& read);

}  // namespace TamLogCtl
