#pragma once

// Finds the verb that the arguments name, with its options.

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TamLogCtl {

using Action = std::function<int()>;  // runs the verb and returns the program's exit code

// Returns nothing when no verb is left to run: `exitCode` is then the program's. Arguments are in UTF-8.
std::optional<Action> ParseCommandLine(std::vector<std::string> arguments, int& exitCode);

}  // namespace TamLogCtl
