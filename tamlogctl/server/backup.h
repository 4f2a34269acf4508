#pragma once

// Writes what a snapshot holds as a log file of its own, for verbs that are about to empty the log.

#include <string>

#include "client/log/log_snapshot.h"
#include "client/message/status.h"

namespace TamLogCtl {

// Writes the messages in time order, oldest in slot 0: a file that a server accepts, whatever order the ring
// had. `path` is in UTF-8. Returns the statuses of AtomicFile, or Damaged when the snapshot's header is not
// sound; unless the result is Ok, nothing was written. A file that exists is not overwritten.
TamLogClient::Status WriteBackup(const std::string& path, const TamLogClient::LogSnapshot& snapshot);

// A name in the current directory, made of the time: "tamlog-20260102-030405.dat".
std::string BackupName();

}  // namespace TamLogCtl
