#include "client/live/log_client.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

#include "client/live/pipe_connection.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

namespace {

constexpr std::uint32_t kMostFilters = 100000;  // bounds GetFilters if the server never ends the list

template <std::size_t size>
std::string TextOf(const char (&field)[size]) {
  const std::string_view whole(field, size);
  return std::string(whole.substr(0, whole.find('\0')));
}

// Returns whether a request may be sent again when it is not known whether it was carried out.
bool IsRepeatable(const PipeRequest& request) {
  const auto code = static_cast<RequestCode>(request.code);
  return code != RequestCode::SubmitMessage && code != RequestCode::AddFilter &&
         code != RequestCode::ClearLog;
}

PipeRequest MakeRequest(RequestCode code) {
  PipeRequest request{};
  std::memset(&request, 0, sizeof(request));
  request.code = static_cast<std::uint32_t>(code);
  return request;
}

bool HasZero(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

}  // namespace

class LogClient::Connection {
 public:
  explicit Connection(const LogClientOptions& options)
      : timeoutMs(options.timeoutMs), pipes(options.pipeName, options.absentMs) {}

  const std::uint32_t timeoutMs;
  std::mutex turn;  // guards what follows
  PipeConnection pipes;
  std::uint64_t opened = 0;
};

LogClient::LogClient(const LogClientOptions& chosen) : connection(std::make_unique<Connection>(chosen)) {}

LogClient::~LogClient() = default;

void LogClient::Disconnect() {
  const std::lock_guard turn(connection->turn);
  connection->pipes.Close();
}

std::uint64_t LogClient::Connections() const {
  const std::lock_guard turn(connection->turn);
  return connection->opened;
}

// Sets `sent` to whether the request left the client.
Status LogClient::Carry(const PipeRequest& request, PipeReply& reply, bool& sent) {
  sent = false;
  const std::lock_guard turn(connection->turn);
  PipeConnection& pipes = connection->pipes;
  const CallDeadline deadline(connection->timeoutMs);
  for (int attempt = 0;; ++attempt) {
    if (!pipes.IsOpen() || pipes.IsStale()) {
      if (const Status status = pipes.Open(deadline); status != Status::Ok) return status;
      ++connection->opened;
    }
    const Status status = pipes.Exchange(request, reply, deadline, sent);
    const bool mayRepeat = status == Status::Disconnected && (!sent || IsRepeatable(request));
    // A request that no pipe took was not carried out, so nothing about it is in doubt.
    if (!mayRepeat || attempt > 0)
      return status == Status::Disconnected && !sent ? Status::NotRunning : status;
  }
}

Status LogClient::Call(const PipeRequest& request, ReplyCode expected, PipeReply& reply) {
  bool sent = false;
  return Call(request, expected, reply, sent);
}

Status LogClient::Call(const PipeRequest& request, ReplyCode expected, PipeReply& reply, bool& sent) {
  const Status status = Carry(request, reply, sent);
  if (status != Status::Ok) return status;
  const auto code = static_cast<ReplyCode>(reply.code);
  if (code == expected) return Status::Ok;
  if (code == ReplyCode::NoSuchFilter && request.code == static_cast<std::uint32_t>(RequestCode::GetFilter)) {
    return Status::NoSuchFilter;
  }
  if (code == ReplyCode::Failed || code == ReplyCode::UnknownRequest) return Status::Refused;
  // Client and server are out of step.
  Disconnect();
  return Status::Disconnected;
}

Status LogClient::CallPlain(RequestCode code) {
  PipeReply reply{};
  return Call(MakeRequest(code), ReplyCode::Done, reply);
}

Status LogClient::CallPath(RequestCode code, ReplyCode expected, std::string& path) {
  PipeReply reply{};
  const Status status = Call(MakeRequest(code), expected, reply);
  if (status == Status::Ok) path = TextOf(reply.path);
  return status;
}

Status LogClient::Ping() {
  PipeReply reply{};
  return Call(MakeRequest(RequestCode::Ping), ReplyCode::Alive, reply);
}

Status LogClient::Submit(const LogMessageBody& message) {
  bool left = false;
  return Submit(message, left);
}

Status LogClient::Submit(const LogMessageBody& message, bool& left) {
  left = false;
  LogMessage stored{};
  stored.body = message;
  const LogMessageView view(stored);
  if (view.Source().size() == kTextSize || view.Text().size() == kTextSize) return Status::TooLong;
  if (view.Type() >= kMessageTypes) return Status::BadValue;
  PipeRequest request = MakeRequest(RequestCode::SubmitMessage);
  request.message = message;
  PipeReply reply{};
  return Call(request, ReplyCode::Done, reply, left);
}

Status LogClient::GetFileMapName(std::string& name) {
  return CallPath(RequestCode::GetFileMapName, ReplyCode::FileMapName, name);
}

Status LogClient::GetLogFile(std::string& path) {
  return CallPath(RequestCode::GetLogFile, ReplyCode::Path, path);
}

Status LogClient::GetDefaultLogFile(std::string& path) {
  return CallPath(RequestCode::GetDefaultLogFile, ReplyCode::Path, path);
}

Status LogClient::SetLogFile(const std::string& path) {
  if (path.size() > kLongestLogPath) return Status::TooLong;
  if (path.empty() || HasZero(path)) return Status::BadValue;
  PipeRequest request = MakeRequest(RequestCode::SetLogFile);
  std::memcpy(request.path, path.data(), path.size());
  PipeReply reply{};
  return Call(request, ReplyCode::Done, reply);
}

Status LogClient::GetSettings(SettingsBody& settings) {
  PipeReply reply{};
  const Status status = Call(MakeRequest(RequestCode::GetSettings), ReplyCode::Settings, reply);
  if (status == Status::Ok) settings = reply.settings;
  return status;
}

Status LogClient::SetSettings(const SettingsBody& settings) {
  if (settings.maxMessage == 0 || settings.devicePollRate == 0 || settings.saveRate == 0)
    return Status::BadValue;
  PipeRequest request = MakeRequest(RequestCode::SetSettings);
  request.settings = settings;
  PipeReply reply{};
  return Call(request, ReplyCode::Done, reply);
}

Status LogClient::GetFilter(std::uint32_t index, FilterEntry& filter) {
  PipeRequest request = MakeRequest(RequestCode::GetFilter);
  request.index = index;
  PipeReply reply{};
  const Status status = Call(request, ReplyCode::Filter, reply);
  if (status == Status::Ok) filter = {TextOf(reply.filter.text), reply.filter.kind != 0};
  return status;
}

Status LogClient::GetFilters(std::vector<FilterEntry>& filters) {
  filters.clear();
  for (std::uint32_t index = 0; index < kMostFilters; ++index) {
    FilterEntry filter;
    const Status status = GetFilter(index, filter);
    if (status == Status::NoSuchFilter) return Status::Ok;
    if (status != Status::Ok) return status;
    filters.push_back(std::move(filter));
  }
  return Status::Refused;
}

Status LogClient::AddFilter(const FilterEntry& filter) {
  if (filter.text.size() >= kFilterTextSize) return Status::TooLong;
  if (HasZero(filter.text)) return Status::BadValue;
  PipeRequest request = MakeRequest(RequestCode::AddFilter);
  std::memcpy(request.filter.text, filter.text.data(), filter.text.size());
  request.filter.kind = filter.include ? 1 : 0;
  PipeReply reply{};
  return Call(request, ReplyCode::Done, reply);
}

Status LogClient::ClearFilters() {
  return CallPlain(RequestCode::ClearFilters);
}

Status LogClient::ClearLog() {
  return CallPlain(RequestCode::ClearLog);
}

}  // namespace TamLogClient
