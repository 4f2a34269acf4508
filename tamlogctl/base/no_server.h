#pragma once

// What a verb that needs a running server answers on a system that has none.

namespace TamLogCtl {

// Says so on stderr and returns the exit code.
int NoServerHere();

}  // namespace TamLogCtl
