#pragma once

// The files that export and repair write.

#include <cstdint>
#include <string>

#include "client/file/log_file_writer.h"

namespace TamLogCtl {

// Writes a log file (TamLogClient::WriteLogFile) and shows the progress; Ctrl-C ends the writing. Unless the
// result is kDone, nothing is left of the file, and the reason has been reported on stderr.
int WriteLogTarget(const std::string& target, std::uint64_t count, const TamLogClient::MessageAt& messageAt,
                   std::uint32_t capacity, bool overwrite);

// Reports on stderr why the file `target` was not written; returns the exit code.
int ExplainTarget(const std::string& target, const TamLogClient::FileStatus& status);

}  // namespace TamLogCtl
