#include "tests/system/server_connection.h"

#include <algorithm>

namespace {

// Opening one pipe of the pair makes the server create the other instance at once, unless it is shutting
// down.
constexpr std::chrono::milliseconds kSecondPipeLimit{200};

std::uint32_t Milliseconds(std::chrono::milliseconds time) {
  return static_cast<std::uint32_t>(std::max<std::int64_t>(time.count(), 0));
}

}  // namespace

std::optional<ServerConnection> ServerConnection::Connect(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  ServerConnection connection;
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (!connection.client->OpenRequestPipe(Milliseconds(left))) return std::nullopt;
    // A request pipe without a reply pipe belongs to a server that has ended: a reply pipe of the next server
    // would belong to another client's pair.
    if (connection.client->OpenReplyPipe(Milliseconds(kSecondPipeLimit))) return connection;
    connection.client->Disconnect();
  }
}

ServerConnection::ServerConnection() : client(std::make_unique<TestSupport::PipeClient>()) {}

std::uint32_t ServerConnection::OpenRequestPipe() {
  return client->OpenRequestPipe(0) ? 0 : client->LastError();
}

std::uint32_t ServerConnection::OpenReplyPipe() {
  return client->OpenReplyPipe(0) ? 0 : client->LastError();
}

std::optional<PipeReply> ServerConnection::Ask(const PipeRequest& request, std::chrono::milliseconds limit) {
  return client->Call(request, Milliseconds(limit));
}

std::optional<ReplyCode> ServerConnection::AskForCode(const PipeRequest& request) {
  const std::optional<PipeReply> reply = Ask(request);
  if (!reply) return std::nullopt;
  return static_cast<ReplyCode>(reply->code);
}

bool ServerConnection::WaitForDisconnection(std::chrono::milliseconds limit) {
  return client->WaitUntilDisconnected(Milliseconds(limit));
}
