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

// Returns whether the request pipe exists, and no instance of it is free.
bool IsBusy(const std::string& pipeName) {
  if (WaitNamedPipeA(pipeName.c_str(), 1) != FALSE) return false;
  return GetLastError() == ERROR_SEM_TIMEOUT;
}

PipeState StateOfFailure(Status status, const std::string& pipeName) {
  switch (status) {
    case Status::NotRunning:
      return PipeState::Absent;
    case Status::AccessDenied:
      return PipeState::Denied;
    case Status::TimedOut:
      return IsBusy(pipeName) ? PipeState::Blocked : PipeState::Silent;
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
  PipeConnection pipes(pipeName, kAbsentMs);
  const Status opened = pipes.Open(CallDeadline(busyMs));
  foreign = 0;
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
