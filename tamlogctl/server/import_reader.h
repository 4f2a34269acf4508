#pragma once

// Reads the messages of a file that is to be imported: a log file, or lines of json or tsv.

#include <string>
#include <vector>

#include "records/log_file_format.h"

namespace TamLogCtl {

struct ImportSource {
  int exitCode =
      0;  // kDone; kDamaged when `messages` is the readable part of a damaged log file; or a failure
  std::string problem;
  std::vector<LogMessageBody> messages;
  std::size_t unreadable = 0;  // messages that were left out; `problem` is about the first of them
};

// Reads one file. `format` is auto, log, json or tsv. A line that cannot be read makes the whole file
// unusable (kUsage), so that no file is imported in part.
ImportSource ReadImport(const std::string& path, const std::string& format);

// Reads the messages of all files, in order of time: a message that is older than others makes the server
// write those again. Returns an exit code; any but kDone after a line on stderr. After kDamaged `messages`
// has the readable part.
int ReadImports(const std::vector<std::string>& paths, const std::string& format,
                std::vector<LogMessageBody>& messages);

}  // namespace TamLogCtl
