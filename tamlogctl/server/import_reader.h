#pragma once

// Reads the messages of files: log files, what the data formats of this program have written, and logs of
// other programs.

#include <cstddef>
#include <string>
#include <vector>

#include "records/log_file_format.h"
#include "tamlogctl/server/import_draft.h"

namespace TamLogCtl {

struct ImportSource {
  std::string format;                    // the one that was found or chosen
  std::vector<LogMessageBody> messages;  // in the order of the file
  std::vector<std::string> problems;     // of lines that cannot be read, each with the number of its line
  std::size_t unreadable = 0;            // lines or messages, also beyond `problems`
  std::size_t continued = 0;             // lines without a time, which have that of the line before
  std::size_t firstContinued = 0;        // the first of them
  int exitCode = 0;
};

// Reads one file. A damaged log is read as far as possible.
ImportSource ReadImport(const std::string& path, const ImportChoice& choice);

// Reads all files, reports what cannot be read, and sorts the messages by time; messages of equal time keep
// their order. With `choice.once` overlapping files, such as two backups of one log, count as one. Returns
// kDone, kDamaged (a damaged log; its readable messages are among them), kNegative (with `choice.skip`:
// something was left out), or another exit code.
int ReadImports(const std::vector<std::string>& paths, const ImportChoice& choice,
                std::vector<LogMessageBody>& messages);

}  // namespace TamLogCtl
