#pragma once

// The part of the console that differs between operating systems.

#include <cstddef>
#include <string>
#include <string_view>

namespace TamLogCtl {

// Switches colours off.
inline constexpr std::string_view kPlainColor = "\x1b[0m";

inline constexpr std::size_t kUsualColumns = 80;

// Makes a write return its error where POSIX systems would end the program with a signal (closed pipe, file
// size limit). Call it once, before anything is written; the pager gets the caller's handling back. POSIX
// systems only.
void ReportFailedWrites();

// Writes all of `text`; returns false when that failed.
bool WriteStdout(std::string_view text);

// Returns why the write to standard output that has just failed did so. Empty when its reader has closed it.
std::string StdoutProblem();

}  // namespace TamLogCtl
