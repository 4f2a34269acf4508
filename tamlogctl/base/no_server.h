#pragma once

// The answer of a verb that needs a running server, on a system that has none.

namespace TamLogCtl {

// Writes a line to stderr and returns the exit code.
int NoServerHere();

}  // namespace TamLogCtl
