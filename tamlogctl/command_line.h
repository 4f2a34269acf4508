#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tamlogctl/options.h"

namespace TamLogCtl {

// Reads the arguments (UTF-8, without the program's name). Nothing when all is said already: help or version
// was printed, or an error with its mend was told on stderr; then `exitCode` is what the program ends with.
std::optional<Options> ParseCommandLine(std::vector<std::string> arguments, int& exitCode);

}  // namespace TamLogCtl
