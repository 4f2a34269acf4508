#pragma once

// Reads the messages of files: log files, what the data formats of this program have written, and logs of
// other programs.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "records/log_file_format.h"
#include "tamlogctl/server/import_draft.h"
#include "tamlogctl/server/message_spool.h"

namespace TamLogCtl {

struct ImportSource {
  std::string format;                 // the one that was found or chosen
  std::vector<std::string> problems;  // of lines that cannot be read, each with the number of its line
  std::size_t unreadable = 0;         // lines or messages, also beyond `problems`
  std::size_t continued = 0;          // lines without a time, which have that of the line before
  std::size_t firstContinued = 0;     // the first of them
  int exitCode = 0;
};

using TakeMessage = std::function<void(const LogMessageBody&)>;

// Reads one file, and calls `take` for each message in the order of the file. A damaged log is read as far as
// possible.
ImportSource ReadImport(const std::string& path, const ImportChoice& choice, const TakeMessage& take);

// Reads all files, reports what cannot be read, and sorts the messages. With `choice.once` overlapping files,
// such as two backups of one log, count as one. Returns kDone, kDamaged (a damaged log; its readable messages
// are among them), kNegative (with `choice.skip`: something was left out), or another exit code.
int ReadImports(const std::vector<std::string>& paths, const ImportChoice& choice, MessageSpool& messages);

}  // namespace TamLogCtl
