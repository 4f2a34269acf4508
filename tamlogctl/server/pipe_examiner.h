#pragma once

// Looks at the server's pipes from outside, for a diagnosis.

#include <cstdint>
#include <string>

#include "tamlogctl/server/doctor_findings.h"

namespace TamLogCtl {

// Tries to open both pipes for `busyMs` and to get an answer to a Ping within `answerMs`. A request pipe that
// is busy all the time says that a client opened it and not the reply pipe, which keeps all others out.
PipeState ExaminePipes(const std::string& pipeName, std::uint32_t busyMs, std::uint32_t answerMs);

// Opens and closes the reply pipe alone, which frees a server that waits for it. A person's decision only: a
// client that is just between its two opens loses its reply pipe. False when it could not be opened.
bool FreeListener(const std::string& pipeName);

}  // namespace TamLogCtl
