#pragma once

// Writes log files (client/file/atomic_file.h: whole, or not at all).

#include <cstdint>
#include <functional>
#include <string>

#include "client/file/file_status.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// Returns message `index`, from 0 for the oldest. The message must not break a rule of the format.
using MessageAt = std::function<LogMessage(std::uint64_t index)>;

// Called before each slot is written; false ends the writing.
using GoOn = std::function<bool(std::uint64_t slot)>;

// Writes a log file of `capacity` slots with `count` messages, which are in time order, oldest first. They
// are numbered from 0. Returns the statuses of AtomicFile; BadValue when the messages do not fit, or when
// one of them would make a server empty the file; Interrupted when `goOn` returned false. Unless the result
// is Ok, nothing is left of the file.
FileStatus WriteLogFile(const std::string& path, std::uint64_t count, const MessageAt& messageAt,
                        std::uint32_t capacity, bool overwrite, const GoOn& goOn = {});

}  // namespace TamLogClient
