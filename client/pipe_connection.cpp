#include "client/pipe_connection.h"

#include <algorithm>
#include <utility>

#include "client/win32.h"

namespace TamLogClient {

namespace {

constexpr DWORD kRetryMs = 10;
constexpr DWORD kReplyRetryMs = 2;
constexpr std::uint64_t kReplyPipeMs = 1000;
constexpr std::uint64_t kStaleMs = 5000;
// Whoever offers the pipe may learn who calls, but not act in the caller's name.
constexpr DWORD kOpenFlags = FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;

Handle OpenPipe(const std::string& name, DWORD access) {
  return Handle(CreateFileA(name.c_str(), access, 0, nullptr, OPEN_EXISTING, kOpenFlags, nullptr));
}

Status StatusOfIo(DWORD error) {
  return error == ERROR_ACCESS_DENIED ? Status::AccessDenied : Status::Disconnected;
}

// Waits for an overlapped operation and gives it up when time is over. `operation` and the buffer are free
// again when this returns.
Status Finish(HANDLE pipe, OVERLAPPED& operation, BOOL started, std::uint32_t timeoutMs, DWORD& bytes) {
  if (started == FALSE && GetLastError() != ERROR_IO_PENDING) return StatusOfIo(GetLastError());
  const bool inTime = WaitForSingleObject(operation.hEvent, timeoutMs) == WAIT_OBJECT_0;
  if (!inTime) CancelIoEx(pipe, &operation);
  // It may have completed just before it was cancelled: then it counts.
  if (GetOverlappedResult(pipe, &operation, &bytes, TRUE) != FALSE) return Status::Ok;
  return inTime ? StatusOfIo(GetLastError()) : Status::TimedOut;
}

bool IsStillConnected(HANDLE pipe) {
  return PeekNamedPipe(pipe, nullptr, 0, nullptr, nullptr, nullptr) != FALSE;
}

}  // namespace

CallDeadline::CallDeadline(std::uint32_t milliseconds) : end(GetTickCount64() + milliseconds) {}

std::uint32_t CallDeadline::Remaining() const {
  const std::uint64_t now = GetTickCount64();
  return now < end ? static_cast<std::uint32_t>(end - now) : 0;
}

PipeConnection::PipeConnection(std::string name, std::uint32_t absentMilliseconds)
    : requestName(std::move(name)), replyName(requestName + kReplyPipeSuffix), absentMs(absentMilliseconds) {}

bool PipeConnection::IsStale() const {
  return GetTickCount64() - lastUse > kStaleMs;
}

void PipeConnection::Close() {
  requestPipe.Close();
  replyPipe.Close();
  answered = false;
  keptReply = false;
}

// A reply pipe without its request pipe is one that Exchange has kept. The server may have been restarted
// since: then it is of no use.
Status PipeConnection::Open(const CallDeadline& deadline) {
  if (requestPipe) Close();
  if (!ioEvent) ioEvent = Handle(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  if (!ioEvent) return Status::SystemError;
  do {
    if (const Status status = OpenRequestPipe(deadline); status != Status::Ok) {
      Close();
      return status;
    }
    keptReply = replyPipe && IsStillConnected(replyPipe.Get());
    if (keptReply || OpenReplyPipe()) {
      lastUse = GetTickCount64();
      return Status::Ok;
    }
    requestPipe.Close();
  } while (deadline.Remaining() > 0);
  return Status::TimedOut;
}

Status PipeConnection::OpenRequestPipe(const CallDeadline& deadline) {
  std::uint64_t absentSince = GetTickCount64();
  for (;;) {
    requestPipe = OpenPipe(requestName, GENERIC_WRITE);
    if (requestPipe) return Status::Ok;
    const DWORD error = GetLastError();
    const std::uint64_t now = GetTickCount64();
    if (error == ERROR_ACCESS_DENIED) return Status::AccessDenied;
    if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PIPE_BUSY) return Status::SystemError;
    if (error == ERROR_PIPE_BUSY) absentSince = now;
    if (now - absentSince >= absentMs) return Status::NotRunning;
    if (deadline.Remaining() == 0) return error == ERROR_PIPE_BUSY ? Status::TimedOut : Status::NotRunning;
    Sleep(std::min<DWORD>(kRetryMs, deadline.Remaining()));
  }
}

// Not bounded by the call's time: giving up between the two pipes keeps all other clients out, so that the
// second one is tried for its own second.
bool PipeConnection::OpenReplyPipe() {
  const std::uint64_t start = GetTickCount64();
  do {
    replyPipe = OpenPipe(replyName, GENERIC_READ | FILE_WRITE_ATTRIBUTES);
    if (replyPipe) {
      DWORD mode = PIPE_READMODE_MESSAGE;
      if (SetNamedPipeHandleState(replyPipe.Get(), &mode, nullptr, nullptr) != FALSE) return true;
      replyPipe.Close();
      return false;
    }
    Sleep(kReplyRetryMs);
  } while (GetTickCount64() - start < kReplyPipeMs);
  return false;
}

// When the first request of a connection cannot be sent, its pipes belong to two pairs: another client has
// opened a reply pipe alone and gone. Since then the server throws each pair away whose request pipe is
// opened, and who goes on to the reply pipe gets that of the next one. Giving both back would leave
// everything as it is, for everybody and for good. So the reply pipe is kept: with the next request pipe it
// is a pair.
Status PipeConnection::Exchange(const PipeRequest& request, PipeReply& reply, const CallDeadline& deadline,
                                bool& sent) {
  OVERLAPPED operation{};
  operation.hEvent = ioEvent.Get();
  DWORD bytes = 0;
  BOOL started = WriteFile(requestPipe.Get(), &request, sizeof(request), nullptr, &operation);
  Status status = Finish(requestPipe.Get(), operation, started, deadline.Remaining(), bytes);
  sent = status == Status::Ok;
  if (sent) {
    operation = {};
    operation.hEvent = ioEvent.Get();
    started = ReadFile(replyPipe.Get(), &reply, sizeof(reply), nullptr, &operation);
    status = Finish(replyPipe.Get(), operation, started, deadline.Remaining(), bytes);
    if (status == Status::Ok && bytes != sizeof(reply)) status = Status::Disconnected;
  }
  lastUse = GetTickCount64();
  if (status == Status::Ok) {
    answered = true;
  } else if (status == Status::Disconnected && !sent && !answered && !keptReply) {
    requestPipe.Close();
  } else {
    Close();
  }
  return status;
}

}  // namespace TamLogClient
