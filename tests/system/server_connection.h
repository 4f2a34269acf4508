#pragma once

// A client of the pipes that connects, asks and gives up like a program that lives with restarts of the
// server. One thread at a time per connection.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "records/pipe_protocol.h"
#include "tests/support/pipe_client.h"
#include "tests/support/requests.h"

using TestSupport::FilterRequest;
using TestSupport::IndexRequest;
using TestSupport::PathRequest;
using TestSupport::RequestOf;
using TestSupport::SettingsRequest;
using TestSupport::SubmitRequest;

class ServerConnection {
 public:
  // Opens both pipes, again and again while the server has no free instance or is not there; nothing after
  // `limit`.
  static std::optional<ServerConnection> Connect(std::chrono::milliseconds limit);

  ServerConnection();
  // One attempt each; 0 or the system's error code (2 no server, 231 no free instance).
  std::uint32_t OpenRequestPipe();
  std::uint32_t OpenReplyPipe();

  // Writes a request and reads its reply. Nothing when the server has gone or the reply does not come in
  // time; the connection is of no use then.
  std::optional<PipeReply> Ask(const PipeRequest& request,
                               std::chrono::milliseconds limit = std::chrono::seconds(15));
  // The code of the reply; nothing as above.
  std::optional<ReplyCode> AskForCode(const PipeRequest& request);
  // Whether the server ends this connection in time.
  bool WaitForDisconnection(std::chrono::milliseconds limit);

 private:
  std::unique_ptr<TestSupport::PipeClient> client;
};
