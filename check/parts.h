#pragma once

// The parts of this program that run as children; check/child.h lists them.

#include <string>
#include <vector>

namespace TamLogCheck {

// Returns the exit code.
int RunPart(const std::vector<std::string>& arguments);

}  // namespace TamLogCheck
