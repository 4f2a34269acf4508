#pragma once

// The server's own trouble log: a plain text file, apart from the shared log file that it keeps for its
// clients. An entry takes two lines: the local time, then " - " and the text.
//
// The file is opened and closed for every entry, never cut and never limited. Threads of this process take
// turns; entries of several processes may interleave. Usable until the very end of the process, the exit
// hooks included.

#include <ctime>
#include <ostream>
#include <string>

namespace TamLogUtil {

// Sets the file (created in the current directory when relative) and drops a stream set before. Empty:
// entries are dropped.
void SetLogFile(const std::string& name);

// Sends entries to `stream` instead of the file; not owned, null goes back to the file. The server never
// does.
void SetLogStream(std::ostream* stream);

// Appends one entry. Nothing that goes wrong is reported; the entry is lost then. Any thread. Changes the
// last error, so an ExceptionWindows is built before.
void WriteLog(const std::string& text) noexcept;

// The parts of an entry, without the clock and the file.
// The time in asctime's form, 24 characters and its line break: "Mon Nov 16 01:45:13 2026\n".
std::string LogTimeLine(const std::tm& local);
// `timeLine` keeps its line break, so an entry takes two lines: the time, then " - ", `text`, a line break.
std::string LogEntry(const std::string& timeLine, const std::string& text);

}  // namespace TamLogUtil
