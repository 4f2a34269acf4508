#pragma once

// The server's diagnostic log: a plain text file for its own failures, separate from the shared log file. An
// entry takes two lines: the local time, then " - " and the text.
//
// The file is opened and closed for every entry; it is never truncated and its size is not limited. Threads
// of this process take turns; entries of several processes may interleave. Usable until the very end of the
// process, exit hooks included.

#include <ctime>
#include <ostream>
#include <string>

namespace TamLogUtil {

// Sets the file (created in the current directory when relative) and forgets a stream set before. With an
// empty name entries are dropped.
void SetLogFile(const std::string& name);

// Sends entries to `stream` instead of the file, for tests. Not owned; null selects the file again.
void SetLogStream(std::ostream* stream);

// Appends one entry. Any thread. Failures are not reported; the entry is lost. Changes the last error, so
// construct an ExceptionWindows first.
void WriteLog(const std::string& text) noexcept;

// The parts of an entry, separate from the clock and the file.
//
// Returns the time in asctime's form, 24 characters and a line break: "Mon Nov 16 01:45:13 2026\n".
std::string LogTimeLine(const std::tm& local);
// Returns `timeLine` with its line break, then " - ", `text` and a line break.
std::string LogEntry(const std::string& timeLine, const std::string& text);

}  // namespace TamLogUtil
