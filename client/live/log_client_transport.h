#pragma once

// An AsyncSender's way to the server: the pair of pipes.

#include <memory>

#include "client/live/log_client.h"
#include "client/live/sender_transport.h"

namespace TamLogClient {

std::unique_ptr<SenderTransport> MakeLogClientTransport(const LogClientOptions& options);

}  // namespace TamLogClient
