#pragma once

// A client of the pipes that connects, sends requests and gives up like a program that survives restarts of
// the server. Use each connection from one thread at a time.

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
  // Opens both pipes; retries while the server has no free instance or does not exist. Returns nothing after
  // `limit`.
  static std::optional<ServerConnection> Connect(std::chrono::milliseconds limit);

  ServerConnection();
  // Makes one attempt; returns 0 or the system's error code (2 no server, 231 no free instance).
  std::uint32_t OpenRequestPipe();
  std::uint32_t OpenReplyPipe();

  // Writes a request and reads its reply. Returns nothing when the server has ended or the reply does not
  // come in time; the connection is unusable then.
  std::optional<PipeReply> Ask(const PipeRequest& request,
                               std::chrono::milliseconds limit = std::chrono::seconds(15));
  // Returns the code of the reply; nothing in the cases above.
  std::optional<ReplyCode> AskForCode(const PipeRequest& request);
  // Returns whether the server ends this connection in time.
  bool WaitForDisconnection(std::chrono::milliseconds limit);

 private:
  bool FindsItsReplyPipe();

  std::unique_ptr<TestSupport::PipeClient> client;
};
