#include "tests/system/pipe_connection.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace {

// Between its request pipe and its reply pipe the server makes the other instance at once, unless it is going
// down.
constexpr std::chrono::milliseconds kSecondPipeLimit{200};

std::uint32_t Milliseconds(std::chrono::milliseconds time) {
  return static_cast<std::uint32_t>(std::max<std::int64_t>(time.count(), 0));
}

}  // namespace

PipeRequest RequestOf(RequestCode code) {
  PipeRequest request{};
  request.code = static_cast<std::uint32_t>(code);
  return request;
}

PipeRequest SubmitRequest(const LogMessageBody& message) {
  PipeRequest request = RequestOf(RequestCode::SubmitMessage);
  request.message = message;
  return request;
}

PipeRequest SettingsRequest(const SettingsBody& settings) {
  PipeRequest request = RequestOf(RequestCode::SetSettings);
  request.settings = settings;
  return request;
}

PipeRequest PathRequest(const std::string& path) {
  PipeRequest request = RequestOf(RequestCode::SetLogFile);
  if (path.size() > sizeof(request.path)) throw std::runtime_error("the path does not fit a request");
  std::memcpy(request.path, path.data(), path.size());
  return request;
}

PipeRequest IndexRequest(std::uint32_t index) {
  PipeRequest request = RequestOf(RequestCode::GetFilter);
  request.index = index;
  return request;
}

PipeRequest FilterRequest(const std::string& text, bool include) {
  PipeRequest request = RequestOf(RequestCode::AddFilter);
  if (text.size() >= kFilterTextSize) throw std::runtime_error("the filter does not fit a request");
  std::memcpy(request.filter.text, text.data(), text.size());
  request.filter.kind = include ? 1 : 0;
  return request;
}

std::optional<PipeConnection> PipeConnection::Connect(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  PipeConnection connection;
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (!connection.client->OpenRequestPipe(Milliseconds(left))) return std::nullopt;
    // A request pipe whose reply pipe does not come is of a server that has gone: a reply pipe of the next
    // one would belong to somebody else's pair.
    if (connection.client->OpenReplyPipe(Milliseconds(kSecondPipeLimit))) return connection;
    connection.client->Disconnect();
  }
}

PipeConnection::PipeConnection() : client(std::make_unique<TestSupport::PipeClient>()) {}

std::uint32_t PipeConnection::OpenRequestPipe() {
  return client->OpenRequestPipe(0) ? 0 : client->LastError();
}

std::uint32_t PipeConnection::OpenReplyPipe() {
  return client->OpenReplyPipe(0) ? 0 : client->LastError();
}

std::optional<PipeReply> PipeConnection::Ask(const PipeRequest& request, std::chrono::milliseconds limit) {
  return client->Call(request, Milliseconds(limit));
}

std::optional<ReplyCode> PipeConnection::AskForCode(const PipeRequest& request) {
  const std::optional<PipeReply> reply = Ask(request);
  if (!reply) return std::nullopt;
  return static_cast<ReplyCode>(reply->code);
}

bool PipeConnection::WaitForDisconnection(std::chrono::milliseconds limit) {
  return client->WaitUntilDisconnected(Milliseconds(limit));
}
