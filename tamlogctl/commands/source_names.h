#pragma once

#include <string>
#include <vector>

namespace TamLogCtl {

// Returns the names of the sources in copied logs, or in the log of the running server when no file is named,
// in order and each once: for completion, so nothing is reported. Leaves out names that cannot be typed, and
// stops at a thousand of them.
std::vector<std::string> SourceNames(const std::vector<std::string>& files);

}  // namespace TamLogCtl
