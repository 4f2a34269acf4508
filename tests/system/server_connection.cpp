#include "tests/system/server_connection.h"

#include <algorithm>

namespace {

// The server makes the reply pipe right after the request pipe. On a busy machine that may take a while.
constexpr std::chrono::milliseconds kSecondPipeLimit{10000};
constexpr std::chrono::milliseconds kPingLimit{2000};

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
    if (connection.client->OpenReplyPipe(0) || connection.FindsItsReplyPipe()) return connection;
    connection.client->Disconnect();
  }
}

// A request pipe without a reply pipe belongs to a server that is slow, or that has ended: then the write
// fails, or a reply pipe of the next server is that of another pair.
bool ServerConnection::FindsItsReplyPipe() {
  if (!client->Send(RequestOf(RequestCode::Ping), Milliseconds(kPingLimit)) ||
      !client->OpenReplyPipe(Milliseconds(kSecondPipeLimit)))
    return false;
  const std::optional<PipeReply> reply = client->Receive(Milliseconds(kPingLimit));
  return reply && static_cast<ReplyCode>(reply->code) == ReplyCode::Alive;
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
