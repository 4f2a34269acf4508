#pragma once

// Reads the whole log of the running server at once. Nothing of the server's is held afterwards.

#include <cstdint>
#include <string>

#include "client/log/log_snapshot.h"
#include "client/message/status.h"

namespace TamLogCtl {

// Copies the shared log within `timeoutMs`. Ctrl-C is deferred from then on, see DeferInterrupts.
TamLogClient::Status ReadLiveLog(std::uint32_t timeoutMs, TamLogClient::LogSnapshot& snapshot);

// Copies it as the bytes of a log file. Returns an exit code; any but kDone after a line on stderr.
int ReadLiveImage(std::uint32_t timeoutMs, std::string& bytes);

}  // namespace TamLogCtl
