#pragma once

#include <string>
#include <vector>

namespace TamLogCtl {

// Runs the whole program: arguments in UTF-8, without the program's name. Returns the exit code.
int Run(std::vector<std::string> arguments);

}  // namespace TamLogCtl
