#pragma once

// Reads a copied log file with ordinary reads, on any operating system. Nothing is written or locked. May be
// called from any thread.

#include <string>

#include "client/file/file_status.h"
#include "client/log/log_snapshot.h"

namespace TamLogClient {

struct LogFileVerdict {
  FileStatus status;   // Ok, Damaged or NotALog, or the failure to read the file
  std::string remark;  // for Damaged and NotALog: what is wrong, a sentence without a full stop
};

struct LogFileContents : LogFileVerdict {
  LogSnapshot snapshot;  // for Damaged: what could be read
};

// Reads the whole file at `path` (UTF-8), or a pipe to its end. NotFound, NotAFile (a directory),
// AccessDenied, SystemError and NotALog leave the snapshot empty. A file is Damaged whenever VerifyLogFile
// finds damage other than single messages that break a rule of the format; the snapshot then holds the
// messages that could be read. When the header does not say where they are, the snapshot has a header of its
// own and their slots are without gaps.
//
// Of a capacity above 1,000,000, which no setting reaches, only the slots that hold messages are held.
LogFileContents ReadLogFile(const std::string& path);

// Returns the verdict alone, without holding the messages.
LogFileVerdict JudgeLogFile(const std::string& path);

}  // namespace TamLogClient
