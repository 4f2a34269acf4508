#include "tests/support/pipe_client.h"

#include <array>
#include <utility>

#include "util/win32.h"

namespace TestSupport {

namespace {

// Holds any message that a server could send; the system reports a longer one as an error.
constexpr std::size_t kLargestMessage = 4096;

// Returns the milliseconds left of `milliseconds` since `start` (GetTickCount64).
std::uint32_t Left(ULONGLONG start, std::uint32_t milliseconds) {
  const ULONGLONG elapsed = GetTickCount64() - start;
  return elapsed >= milliseconds ? 0 : milliseconds - static_cast<std::uint32_t>(elapsed);
}

}  // namespace

struct PipeClient::Operation {
  Operation() { overlapped.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr); }
  ~Operation() { CloseHandle(overlapped.hEvent); }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  OVERLAPPED overlapped{};
};

PipeClient::PipeClient(std::string pipeName)
    : requestName(std::move(pipeName)),
      replyName(requestName + kReplyPipeSuffix),
      sending(std::make_unique<Operation>()),
      receiving(std::make_unique<Operation>()) {}

PipeClient::~PipeClient() {
  Disconnect();
}

bool PipeClient::Connect(std::uint32_t milliseconds) {
  const ULONGLONG start = GetTickCount64();
  return OpenRequestPipe(milliseconds) && OpenReplyPipe(Left(start, milliseconds));
}

bool PipeClient::OpenRequestPipe(std::uint32_t milliseconds) {
  CloseRequestPipe();
  requestPipe = Open(requestName, GENERIC_WRITE, milliseconds);
  return requestPipe != nullptr;
}

bool PipeClient::OpenReplyPipe(std::uint32_t milliseconds) {
  CloseReplyPipe();
  // Without FILE_WRITE_ATTRIBUTES the read mode of the handle cannot be changed.
  replyPipe = Open(replyName, GENERIC_READ | FILE_WRITE_ATTRIBUTES, milliseconds);
  if (replyPipe == nullptr) return false;
  DWORD mode = PIPE_READMODE_MESSAGE;
  if (!SetNamedPipeHandleState(replyPipe, &mode, nullptr, nullptr)) {
    lastError = GetLastError();
    CloseReplyPipe();
    return false;
  }
  return true;
}

TamLogUtil::NativeHandle PipeClient::Open(const std::string& name, std::uint32_t access,
                                          std::uint32_t milliseconds) {
  const ULONGLONG start = GetTickCount64();
  while (true) {
    const HANDLE opened =
        CreateFileA(name.c_str(), access, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    if (opened != INVALID_HANDLE_VALUE) return opened;
    lastError = GetLastError();
    const bool maySoonExist = lastError == ERROR_PIPE_BUSY || lastError == ERROR_FILE_NOT_FOUND;
    if (!maySoonExist || Left(start, milliseconds) == 0) return nullptr;
    Sleep(1);
  }
}

void PipeClient::CloseRequestPipe() {
  if (requestPipe != nullptr) CloseHandle(requestPipe);
  requestPipe = nullptr;
}

void PipeClient::CloseReplyPipe() {
  if (replyPipe != nullptr) CloseHandle(replyPipe);
  replyPipe = nullptr;
}

void PipeClient::Disconnect() {
  CloseRequestPipe();
  CloseReplyPipe();
}

bool PipeClient::SendBytes(const void* bytes, std::size_t size, std::uint32_t milliseconds) {
  const bool done =
      WriteFile(requestPipe, bytes, static_cast<DWORD>(size), nullptr, &sending->overlapped) != 0;
  std::uint32_t transferred = 0;
  return Finish(requestPipe, *sending, done, transferred, milliseconds) && transferred == size;
}

bool PipeClient::Send(const PipeRequest& request, std::uint32_t milliseconds) {
  return SendBytes(&request, sizeof(request), milliseconds);
}

std::optional<PipeReply> PipeClient::Receive(std::uint32_t milliseconds) {
  union {
    PipeReply reply;
    std::array<char, kLargestMessage> bytes;
  } buffer{};
  const bool done = ReadFile(replyPipe, &buffer, sizeof(buffer), nullptr, &receiving->overlapped) != 0;
  std::uint32_t transferred = 0;
  if (!Finish(replyPipe, *receiving, done, transferred, milliseconds)) return std::nullopt;
  if (transferred != sizeof(PipeReply)) {
    lastError = 0;
    return std::nullopt;
  }
  return buffer.reply;
}

// Waits for the operation that was just started; cancels it when the time is up.
bool PipeClient::Finish(NativeHandle pipe, Operation& operation, bool done, std::uint32_t& transferred,
                        std::uint32_t milliseconds) {
  if (!done) {
    lastError = GetLastError();
    if (lastError != ERROR_IO_PENDING) return false;
    if (WaitForSingleObject(operation.overlapped.hEvent, milliseconds) == WAIT_TIMEOUT) {
      CancelIo(pipe);
      DWORD ignored = 0;
      // A message that arrived at the last moment still counts.
      if (!GetOverlappedResult(pipe, &operation.overlapped, &ignored, TRUE)) {
        lastError = WAIT_TIMEOUT;
        return false;
      }
    }
  }
  DWORD count = 0;
  if (!GetOverlappedResult(pipe, &operation.overlapped, &count, FALSE)) {
    lastError = GetLastError();
    return false;
  }
  transferred = count;
  return true;
}

std::optional<PipeReply> PipeClient::Call(const PipeRequest& request, std::uint32_t milliseconds) {
  if (!Send(request, milliseconds)) return std::nullopt;
  return Receive(milliseconds);
}

std::uint32_t PipeClient::CallCode(std::uint32_t code, std::uint32_t milliseconds) {
  const std::optional<PipeReply> reply = Call(RequestOf(code), milliseconds);
  return reply ? reply->code : 0;
}

bool PipeClient::WaitUntilDisconnected(std::uint32_t milliseconds) {
  const ULONGLONG start = GetTickCount64();
  while (true) {
    const std::uint32_t left = Left(start, milliseconds);
    if (!Receive(left) && lastError != 0) return lastError != WAIT_TIMEOUT;
  }
}

std::string PipeNameForThisProcess(const std::string& name) {
  return R"(\\.\pipe\)" + name + std::to_string(GetCurrentProcessId());
}

}  // namespace TestSupport
