#pragma once

// Hands messages in again that a change of the capacity has taken out of the log.

#include "client/live/log_client.h"
#include "client/log/log_snapshot.h"

namespace TamLogCtl {

// Those of `before` that the log does not hold now, with their original times, at most as many as it has room
// for, the newest of them. Slowly enough that the server never gets as many as its capacity at once: it would
// write them in reverse, and the next start would empty the log. An exit code; says how many are there again.
int Resubmit(TamLogClient::LogClient& client, const TamLogClient::LogSnapshot& before);

}  // namespace TamLogCtl
