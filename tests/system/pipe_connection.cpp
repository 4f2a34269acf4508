#include "tests/system/pipe_connection.h"

#include <cstring>
#include <stdexcept>
#include <thread>

#include "util/win32.h"

namespace {

constexpr std::uint32_t kPipeError = ERROR_BROKEN_PIPE;

OwnedHandle NewEvent() {
  OwnedHandle event = Own(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  if (!event) ThrowLastError("CreateEvent");
  return event;
}

struct Transfer {
  OwnedHandle event = NewEvent();
  OVERLAPPED overlapped{};
  Transfer() { overlapped.hEvent = event.get(); }
};

// Waits for an overlapped call that has just returned `atOnce`; the transfer is over in every case when this
// returns. 0 or an error code; WAIT_TIMEOUT after `limit`.
std::uint32_t Finish(HANDLE pipe, Transfer& transfer, BOOL atOnce, std::chrono::milliseconds limit,
                     DWORD* count) {
  if (atOnce == 0 && GetLastError() != ERROR_IO_PENDING) return GetLastError();
  const bool inTime =
      WaitForSingleObject(transfer.event.get(), static_cast<DWORD>(limit.count())) == WAIT_OBJECT_0;
  if (!inTime) CancelIo(pipe);
  if (GetOverlappedResult(pipe, &transfer.overlapped, count, TRUE) != 0) return 0;
  return inTime ? GetLastError() : WAIT_TIMEOUT;
}

std::uint32_t Open(const std::string& name, DWORD access, OwnedHandle& pipe) {
  pipe = Own(CreateFileA(name.c_str(), access, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
  return pipe ? 0 : GetLastError();
}

bool WorthAnotherTry(std::uint32_t error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PIPE_BUSY;
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
  do {
    if (connection.OpenRequestPipe() == 0) {
      std::uint32_t error = connection.OpenReplyPipe();
      while (WorthAnotherTry(error) && std::chrono::steady_clock::now() < deadline) {
        // The other instance of this pair is there already or comes at once, unless the server is going down.
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        error = connection.OpenReplyPipe();
      }
      if (error == 0) return connection;
      connection.requestPipe.reset();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  } while (std::chrono::steady_clock::now() < deadline);
  return std::nullopt;
}

std::uint32_t PipeConnection::OpenRequestPipe() { return Open(kRequestPipeName, GENERIC_WRITE, requestPipe); }

std::uint32_t PipeConnection::OpenReplyPipe() {
  const std::uint32_t error =
      Open(std::string(kRequestPipeName) + kReplyPipeSuffix, GENERIC_READ | FILE_WRITE_ATTRIBUTES, replyPipe);
  if (error != 0) return error;
  DWORD mode = PIPE_READMODE_MESSAGE;
  return SetNamedPipeHandleState(replyPipe.get(), &mode, nullptr, nullptr) != 0 ? 0 : GetLastError();
}

std::optional<PipeReply> PipeConnection::Ask(const PipeRequest& request, std::chrono::milliseconds limit) {
  DWORD count = 0;
  Transfer write;
  BOOL atOnce =
      WriteFile(requestPipe.get(), &request, sizeof(request), nullptr, &write.overlapped);
  if (Finish(requestPipe.get(), write, atOnce, limit, &count) != 0 || count != sizeof(request)) {
    return std::nullopt;
  }
  PipeReply reply{};
  Transfer read;
  atOnce = ReadFile(replyPipe.get(), &reply, sizeof(reply), nullptr, &read.overlapped);
  if (Finish(replyPipe.get(), read, atOnce, limit, &count) != 0 || count != sizeof(reply)) return std::nullopt;
  return reply;
}

std::optional<ReplyCode> PipeConnection::AskForCode(const PipeRequest& request) {
  const std::optional<PipeReply> reply = Ask(request);
  if (!reply) return std::nullopt;
  return static_cast<ReplyCode>(reply->code);
}

bool PipeConnection::WaitForDisconnection(std::chrono::milliseconds limit) {
  PipeReply reply{};
  DWORD count = 0;
  Transfer read;
  const BOOL atOnce = ReadFile(replyPipe.get(), &reply, sizeof(reply), nullptr, &read.overlapped);
  const std::uint32_t error = Finish(replyPipe.get(), read, atOnce, limit, &count);
  return error == kPipeError || error == ERROR_PIPE_NOT_CONNECTED;
}
