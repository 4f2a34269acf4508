#pragma once

// Writes what a snapshot holds as a log file of its own, for verbs that are about to empty the log.

#include <string>

#include "client/log/log_snapshot.h"

namespace TamLogCtl {

// Messages in time order, oldest in slot 0: a file that a server accepts, whatever order the ring had.
// Written beside its place and then renamed. A file that exists is not overwritten. False, and `problem`, on
// failure. `path` is in UTF-8.
bool WriteBackup(const std::string& path, const TamLogClient::LogSnapshot& snapshot, std::string& problem);

// A name in the current directory, made of the time: "tamlog-20260102-030405.dat".
std::string BackupName();

}  // namespace TamLogCtl
