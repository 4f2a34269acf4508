#pragma once

// The server's own trouble log: a plain text file, apart from the shared log file that it keeps for its
// clients. An entry takes two lines: the local time, then " - " and the text.
//
// The file is opened and closed for every entry, never cut and never limited. Entries from several threads
// may interleave. Usable until the very end of the process, the exit hooks included.

#include <ostream>
#include <string>

namespace TamLogUtil {

// Sets the file (created in the current directory when relative) and drops a stream set before. Empty:
// entries are dropped.
void SetLogFile(const std::string& name);

// Sends entries to `stream` instead of the file; not owned, null goes back to the file. The server never
// does.
void SetLogStream(std::ostream* stream);

// Appends one entry. Nothing that goes wrong is reported. Any thread.
void WriteLog(const std::string& text);

}  // namespace TamLogUtil
