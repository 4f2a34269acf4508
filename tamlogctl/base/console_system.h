#pragma once

// The part of the console that differs between operating systems.

#include <string>
#include <string_view>

namespace TamLogCtl {

// Switches colours off.
inline constexpr std::string_view kPlainColor = "\x1b[0m";

// Writes all of `text`; returns false when that failed.
bool WriteStdout(std::string_view text);

// Returns why the write to standard output that has just failed did so. Empty when its reader has closed it.
std::string StdoutProblem();

}  // namespace TamLogCtl
