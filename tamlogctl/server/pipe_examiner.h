#pragma once

// Examines the server's pipes from outside, for a diagnosis.

#include <cstdint>
#include <optional>
#include <string>

#include "tamlogctl/server/doctor_findings.h"

namespace TamLogCtl {

// Tries for `busyMs` to open both pipes, and waits `answerMs` for the answer to a Ping. A request pipe that
// is busy all the time was opened by a client that did not open the reply pipe, which blocks all other
// clients. `service` is the process of the service, 0 when it has none, nothing when that is not known.
// Foreign: `foreign` is the process that serves a pipe and is not the service's, or 0 when the pipe could not
// be opened and the service does not run.
PipeState ExaminePipes(const std::string& pipeName, std::uint32_t busyMs, std::uint32_t answerMs,
                       std::optional<std::uint32_t> service, std::uint32_t& foreign);

// Opens and closes the reply pipe alone, which frees a server that waits for its client to do so. Only the
// user can decide that: a client that is about to open its reply pipe loses it. Returns false when it could
// not be opened within 0.5 s.
bool FreeListener(const std::string& pipeName);

}  // namespace TamLogCtl
