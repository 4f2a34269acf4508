#pragma once

// Reads a copy of the log file with ordinary reads, on any operating system. Nothing is written or locked.

#include <string>

#include "client/log/log_snapshot.h"
#include "client/message/status.h"

namespace TamLogClient {

struct LogFileContents {
  Status status = Status::Ok;  // Damaged: `snapshot` holds what could be read all the same
  std::string remark;          // for Damaged: what is wrong, one sentence without a full stop
  LogSnapshot snapshot;
};

// Reads the whole file at `path` (UTF-8), or a pipe to its end. NotFound, NotAFile (a directory),
// AccessDenied and SystemError leave the snapshot empty. A file that is too short or whose header makes no
// sense is Damaged; the snapshot then holds the messages that could be read.
LogFileContents ReadLogFile(const std::string& path);

}  // namespace TamLogClient
