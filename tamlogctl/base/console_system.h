#pragma once

// The part of the console that every operating system does in a way of its own.

#include <string>
#include <string_view>

namespace TamLogCtl {

// Writes all of `text`; false when that failed.
bool WriteStdout(std::string_view text);

// Why the write to standard output that has just failed did so. Empty when its reader has closed it.
std::string StdoutProblem();

}  // namespace TamLogCtl
