#pragma once

// Sends messages again that a change of the capacity has removed from the log.

#include <cstdint>

#include "client/live/log_client.h"
#include "client/log/log_snapshot.h"

namespace TamLogCtl {

// Sends the messages of `before` that the log lacks now, with their original times: the newest of them, as
// many as the log has room for. Sends at most half the capacity between two flushes: as many as the capacity
// would be written in reverse, and the next start of the server would empty the log. `timeoutMs` bounds each
// reading of the log. Reports how many messages are in the log again, and returns the exit code.
int Resubmit(TamLogClient::LogClient& client, const TamLogClient::LogSnapshot& before,
             std::uint32_t timeoutMs);

}  // namespace TamLogCtl
