#pragma once

// The sources that a log has, for completion and for advice.

#include <string>
#include <vector>

namespace TamLogCtl {

// Returns the names of the sources in copied logs, or in the log of the running server when no file is named,
// in order and each once. Files that cannot be read are passed over. Leaves out names that cannot be typed,
// and stops at a thousand of them.
std::vector<std::string> SourceNames(const std::vector<std::string>& files);

}  // namespace TamLogCtl
