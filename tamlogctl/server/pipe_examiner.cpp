#include "tamlogctl/server/pipe_examiner.h"

#include <cstring>

#include "client/live/pipe_connection.h"
#include "client/message/win32.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/wait.h"

namespace TamLogCtl {

namespace {

using TamLogClient::CallDeadline;
using TamLogClient::Handle;
using TamLogClient::PipeConnection;
using TamLogClient::Status;

constexpr std::uint32_t kAbsentMs = 1000;
constexpr std::uint32_t kReplyMs = 500;

// Of several processes that offer the pipe, clients get the one whose instance is the oldest.
constexpr int kSamples = 4;

// Returns whether the pipe exists, and no instance of it is free.
bool IsBusy(const std::string& pipeName) {
  if (WaitNamedPipeA(pipeName.c_str(), 1) != FALSE) return false;
  return GetLastError() == ERROR_SEM_TIMEOUT;
}

// Returns whether an instance of the pipe is free whenever it is examined.
bool StaysFree(const std::string& pipeName) {
  for (int i = 0; i < kSamples; ++i) {
    if (WaitNamedPipeA(pipeName.c_str(), 1) == FALSE) return false;
    if (!SleepFor(kReplyMs / kSamples)) return true;
  }
  return true;
}

Handle OpenForServer(const std::string& name, DWORD access, std::uint32_t& process) {
  Handle pipe(CreateFileA(name.c_str(), access, 0, nullptr, OPEN_EXISTING,
                          SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
  ULONG server = 0;
  process = pipe && GetNamedPipeServerProcessId(pipe.Get(), &server) != FALSE ? std::uint32_t{server} : 0U;
  return pipe;
}

// Returns the process that serves the next connection, if that is not `service`; 0 when it is, or when there
// is no connection in time. The reply pipe of the service stays untouched unless its request pipe is open:
// the two would be taken for a pair.
std::uint32_t ForeignServerOfNext(const std::string& pipeName, std::uint32_t service) {
  std::uint32_t process = 0;
  Handle request;
  const auto opened = [&] {
    request = OpenForServer(pipeName, GENERIC_WRITE, process);
    return request || GetLastError() != ERROR_PIPE_BUSY;
  };
  if (WaitUntil(kReplyMs, 10, opened) != kDone || process == 0) return 0;
  if (process != service) return process;
  const auto replyOpened = [&] {
    return static_cast<bool>(OpenForServer(pipeName + kReplyPipeSuffix, GENERIC_READ, process));
  };
  return WaitUntil(kAbsentMs, 2, replyOpened) == kDone && process != service ? process : 0;
}

std::uint32_t ForeignServer(const std::string& pipeName, std::uint32_t service) {
  std::uint32_t foreign = 0;
  for (int i = 0; i < kSamples && foreign == 0; ++i) foreign = ForeignServerOfNext(pipeName, service);
  return foreign;
}

PipeState StateOfFailure(Status status, const std::string& pipeName) {
  switch (status) {
    case Status::NotRunning:
      return PipeState::Absent;
    case Status::AccessDenied:
      return PipeState::Denied;
    case Status::TimedOut:
      if (!IsBusy(pipeName)) return PipeState::Silent;
      return StaysFree(pipeName + kReplyPipeSuffix) ? PipeState::Blocked : PipeState::Taken;
    default:
      return PipeState::Failing;
  }
}

PipeState StateOfAnswer(PipeConnection& pipes, std::uint32_t answerMs) {
  PipeRequest request;
  std::memset(&request, 0, sizeof(request));
  request.code = static_cast<std::uint32_t>(RequestCode::Ping);
  PipeReply reply{};
  bool sent = false;
  const Status status = pipes.Exchange(request, reply, CallDeadline(answerMs), sent);
  if (status == Status::TimedOut) return PipeState::Silent;
  const bool alive = status == Status::Ok && reply.code == static_cast<std::uint32_t>(ReplyCode::Alive);
  return alive ? PipeState::Answers : PipeState::Failing;
}

}  // namespace

// A pipe that another process has created may open only in part, or not at all.
PipeState ExaminePipes(const std::string& pipeName, std::uint32_t busyMs, std::uint32_t answerMs,
                       std::optional<std::uint32_t> service, std::uint32_t& foreign) {
  foreign = service.value_or(0) == 0 ? 0 : ForeignServer(pipeName, *service);
  if (foreign != 0) return PipeState::Foreign;
  PipeConnection pipes(pipeName, kAbsentMs);
  const Status opened = pipes.Open(CallDeadline(busyMs));
  for (const std::uint32_t process : pipes.ServerProcesses()) {
    if (service && process != 0 && process != *service) foreign = process;
  }
  if (foreign != 0) return PipeState::Foreign;
  if (opened == Status::Ok) return StateOfAnswer(pipes, answerMs);
  const PipeState state = StateOfFailure(opened, pipeName);
  return service == 0U && state != PipeState::Absent ? PipeState::Foreign : state;
}

bool FreeListener(const std::string& pipeName) {
  const std::string name = pipeName + kReplyPipeSuffix;
  const auto opened = [&name] {
    const Handle reply(CreateFileA(name.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                   SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    return static_cast<bool>(reply);
  };
  return WaitUntil(kReplyMs, 10, opened) == kDone;
}

}  // namespace TamLogCtl
