#pragma once

// Saves the log as a log file, for verbs that are about to empty it.

#include <string>

#include "client/log/log_snapshot.h"
#include "client/message/status.h"

namespace TamLogCtl {

// Writes the messages in time order, the oldest in slot 0, whatever order the ring has: a file that a server
// accepts. The file appears as a whole or not at all, and an existing one is not replaced. `path` is in
// UTF-8. Returns the exit code, and explains a failure on stderr; `advice` is what to do when the file
// already exists.
int WriteBackup(const std::string& path, const TamLogClient::LogSnapshot& snapshot,
                const std::string& advice);

// Returns a file name with the present time, for example "tamlog-20260102-030405.dat".
std::string BackupName();

}  // namespace TamLogCtl
