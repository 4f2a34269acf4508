#pragma once

// Messages of a file that is to be handed in: a log file, or lines of json or tsv.

#include <string>
#include <vector>

#include "records/log_file_format.h"

namespace TamLogCtl {

struct ImportSource {
  int exitCode = 0;  // kDone, or kDamaged when a log file is damaged and gives what is readable
  std::string problem;
  std::vector<LogMessageBody> messages;
  std::size_t unreadable = 0;  // left out; `problem` is about the first of them
};

// `format` is auto, log, json or tsv. Lines that cannot be read make the file unusable (kUsage), so that
// nothing is handed in by halves.
ImportSource ReadImport(const std::string& path, const std::string& format);

// The messages of all files in order of time: a message that is older than others makes the server write
// those again. kDone, or after a word on stderr: kDamaged with what is readable, or another exit code.
int ReadImports(const std::vector<std::string>& paths, const std::string& format,
                std::vector<LogMessageBody>& messages);

}  // namespace TamLogCtl
