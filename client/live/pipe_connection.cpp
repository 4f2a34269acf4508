#include "client/live/pipe_connection.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <utility>

#include "client/message/win32.h"

namespace TamLogClient {

namespace {

constexpr DWORD kRetryMs = 10;
constexpr DWORD kReplyRetryMs = 2;
constexpr std::uint64_t kReplyPipeMs = 1000;
constexpr std::uint64_t kSlowServerMs = 10000;
constexpr std::uint64_t kStaleMs = 5000;
constexpr std::uint32_t kProofMs = 2000;
constexpr int kProofs = 4;
// A process that offers the pipe may identify the caller, but not act in the caller's name.
constexpr DWORD kOpenFlags = FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;

Handle OpenPipe(const std::string& name, DWORD access) {
  return Handle(CreateFileA(name.c_str(), access, 0, nullptr, OPEN_EXISTING, kOpenFlags, nullptr));
}

Status StatusOfIo(DWORD error) {
  return error == ERROR_ACCESS_DENIED ? Status::AccessDenied : Status::Disconnected;
}

// Waits for an overlapped operation and cancels it at the time-out. `operation` and the buffer may be reused
// when this returns.
Status Finish(HANDLE pipe, OVERLAPPED& operation, BOOL started, std::uint32_t timeoutMs, DWORD& bytes) {
  if (started == FALSE && GetLastError() != ERROR_IO_PENDING) return StatusOfIo(GetLastError());
  const bool inTime = WaitForSingleObject(operation.hEvent, timeoutMs) == WAIT_OBJECT_0;
  if (!inTime) CancelIoEx(pipe, &operation);
  // It may have completed just before it was cancelled: then it counts.
  if (GetOverlappedResult(pipe, &operation, &bytes, TRUE) != FALSE) return Status::Ok;
  return inTime ? StatusOfIo(GetLastError()) : Status::TimedOut;
}

// Returns 0 when the system does not say.
std::uint32_t ServerOf(const Handle& pipe) {
  ULONG processId = 0;
  return GetNamedPipeServerProcessId(pipe.Get(), &processId) != FALSE ? std::uint32_t{processId} : 0U;
}

// A request that the server answers at once whatever it is doing, and the code of the answer.
struct Probe {
  RequestCode question;
  ReplyCode answer;
};

// Returns a probe at random: two clients that hold the halves of each other's connections would both accept
// the other's answer to the same question. No probe has an answer that another client could take for a
// refusal of its own request, because that client has to notice that it is out of step.
Probe AnyProbe() {
  static constexpr Probe kAll[] = {
      {RequestCode::Ping, ReplyCode::Alive},
      {RequestCode::GetFileMapName, ReplyCode::FileMapName},
      {RequestCode::GetDefaultLogFile, ReplyCode::Path},
  };
  thread_local std::minstd_rand random{std::random_device{}()};
  return kAll[random() / 7 % std::size(kAll)];
}

}  // namespace

PipeConnection::PipeConnection(std::string name, std::uint32_t absentMilliseconds)
    : requestName(std::move(name)), replyName(requestName + kReplyPipeSuffix), absentMs(absentMilliseconds) {}

bool PipeConnection::IsStale() const {
  return GetTickCount64() - lastUse > kStaleMs;
}

void PipeConnection::Close() {
  requestPipe.Close();
  replyPipe.Close();
  owed.reset();
}

Status PipeConnection::Open(const CallDeadline& deadline) {
  Close();
  if (!ioEvent) ioEvent = Handle(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  if (!ioEvent) return Status::SystemError;
  do {
    if (const Status status = OpenRequestPipe(deadline); status != Status::Ok) return status;
    bool atOnce = false;
    proven = false;
    // A reply pipe that did not exist at once may be of another pair.
    if (OpenReplyPipe(atOnce) && (atOnce || Prove(deadline))) {
      lastUse = GetTickCount64();
      return Status::Ok;
    }
    Close();
  } while (deadline.Remaining() > 0);
  return Status::TimedOut;
}

Status PipeConnection::OpenRequestPipe(const CallDeadline& deadline) {
  std::uint64_t absentSince = GetTickCount64();
  for (;;) {
    requestPipe = OpenPipe(requestName, GENERIC_WRITE);
    if (requestPipe) {
      servers = {ServerOf(requestPipe), 0};
      return Status::Ok;
    }
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

// Tries for a full second, whatever is left of the call's time: a client that gives up between the two pipes
// keeps all other clients out. If the server still has its end of the request pipe after that, it is only
// slow: then tries longer.
bool PipeConnection::OpenReplyPipe(bool& atOnce) {
  const std::uint64_t start = GetTickCount64();
  std::uint64_t limit = kReplyPipeMs;
  for (atOnce = true; !TakeReplyPipe(); atOnce = false) {
    if (GetTickCount64() - start >= limit) {
      if (limit == kSlowServerMs || !ServerHasRequestPipe()) return false;
      limit = kSlowServerMs;
    }
    Sleep(kReplyRetryMs);
  }
  return true;
}

// Only a write shows it. The answer is the first reply that comes.
bool PipeConnection::ServerHasRequestPipe() {
  if (owed) return false;
  PipeRequest ping;
  std::memset(&ping, 0, sizeof(ping));
  ping.code = static_cast<std::uint32_t>(RequestCode::Ping);
  if (Write(ping, CallDeadline(kReplyPipeMs)) != Status::Ok) return false;
  owed = ReplyCode::Alive;
  return true;
}

bool PipeConnection::TakeReplyPipe() {
  Handle taken = OpenPipe(replyName, GENERIC_READ | FILE_WRITE_ATTRIBUTES);
  DWORD mode = PIPE_READMODE_MESSAGE;
  if (!taken || SetNamedPipeHandleState(taken.Get(), &mode, nullptr, nullptr) == FALSE) return false;
  replyPipe = std::move(taken);
  servers[1] = ServerOf(replyPipe);
  return true;
}

Status PipeConnection::Write(const PipeRequest& request, const CallDeadline& deadline) {
  OVERLAPPED operation{};
  operation.hEvent = ioEvent.Get();
  DWORD bytes = 0;
  const BOOL started = WriteFile(requestPipe.Get(), &request, sizeof(request), nullptr, &operation);
  return Finish(requestPipe.Get(), operation, started, deadline.Remaining(), bytes);
}

Status PipeConnection::Read(PipeReply& reply, const CallDeadline& deadline) {
  OVERLAPPED operation{};
  operation.hEvent = ioEvent.Get();
  DWORD bytes = 0;
  const BOOL started = ReadFile(replyPipe.Get(), &reply, sizeof(reply), nullptr, &operation);
  const Status status = Finish(replyPipe.Get(), operation, started, deadline.Remaining(), bytes);
  return status == Status::Ok && bytes != sizeof(reply) ? Status::Disconnected : status;
}

// Returns whether a request through one pipe is answered through the other; makes the two a pair if it can.
//
// The server drops a pair between the two opens at a restart, or after a client that opened the reply pipe
// alone and left. Then this client holds the dead request pipe of that pair and the reply pipe of a later
// one. It must not just close them: if the later pair still waits for its client, the next client would find
// the same state, and no client would get through any more. So it opens the request pipe once more, which
// makes the two a pair. If another client has taken the other half of that reply pipe meanwhile, no answer
// comes; the new request pipe then has a reply pipe of its own, which has to be opened too, or the server
// waits for that and accepts no other client.
bool PipeConnection::Prove(const CallDeadline& deadline) {
  const CallDeadline limit(std::min(kProofMs, deadline.Remaining()));
  bool dead = false;
  if (Answers(limit, dead)) return true;
  if (!dead) return false;
  requestPipe.Close();
  owed.reset();
  if (OpenRequestPipe(limit) != Status::Ok) return false;
  if (Answers(limit, dead)) return true;
  bool atOnce = false;
  return OpenReplyPipe(atOnce) && Answers(CallDeadline(kProofMs), dead);
}

// Returns whether all probes are answered. Sets `dead` to whether the request pipe is dead.
bool PipeConnection::Answers(const CallDeadline& limit, bool& dead) {
  PipeReply reply{};
  const auto answered = [&](ReplyCode expected) {
    owed = expected;
    if (Read(reply, limit) != Status::Ok) return false;
    owed.reset();
    return reply.code == static_cast<std::uint32_t>(expected);
  };
  dead = false;
  if (owed && !answered(*owed)) return false;
  for (int i = 0; i < kProofs; ++i) {
    const Probe probe = AnyProbe();
    PipeRequest request;
    std::memset(&request, 0, sizeof(request));
    request.code = static_cast<std::uint32_t>(probe.question);
    const Status written = Write(request, limit);
    dead = written == Status::Disconnected;
    if (written != Status::Ok || !answered(probe.answer)) return false;
  }
  proven = true;
  return true;
}

Status PipeConnection::Exchange(const PipeRequest& request, PipeReply& reply, const CallDeadline& deadline,
                                bool& sent) {
  Status status = Write(request, deadline);
  if (status == Status::Disconnected && !proven && Prove(deadline)) status = Write(request, deadline);
  sent = status == Status::Ok;
  if (sent) status = Read(reply, deadline);
  if (status == Status::Ok) proven = true;
  lastUse = GetTickCount64();
  if (status != Status::Ok) Close();
  return status;
}

}  // namespace TamLogClient
