#pragma once

// Connects an AsyncSender to the server over its pair of pipes.

#include <memory>

#include "client/live/log_client.h"
#include "client/live/sender_transport.h"

namespace TamLogClient {

std::unique_ptr<SenderTransport> MakeLogClientTransport(const LogClientOptions& options);

}  // namespace TamLogClient
