#pragma once

// Reads a copied log file with ordinary reads, on any operating system. Nothing is written or locked. May be
// called from any thread.

#include <string>

#include "client/file/file_status.h"
#include "client/log/log_snapshot.h"

namespace TamLogClient {

struct LogFileContents {
  FileStatus status;   // Damaged: `snapshot` holds what could be read
  std::string remark;  // for Damaged: what is wrong, a sentence without a full stop
  LogSnapshot snapshot;
};

// Reads the whole file at `path` (UTF-8), or a pipe to its end. NotFound, NotAFile (a directory),
// AccessDenied and SystemError leave the snapshot empty. A file that is too short or whose header is not
// valid is Damaged; the snapshot then holds the messages that could be read.
LogFileContents ReadLogFile(const std::string& path);

}  // namespace TamLogClient
