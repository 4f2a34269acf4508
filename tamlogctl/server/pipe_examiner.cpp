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

}  // namespace

PipeState ExaminePipes(const std::string& pipeName, std::uint32_t busyMs, std::uint32_t answerMs,
                       std::optional<std::uint32_t> service, std::uint32_t& foreign) {
  PipeConnection pipes(pipeName, kAbsentMs);
  switch (pipes.Open(CallDeadline(busyMs))) {
    case Status::Ok:
      break;
    case Status::NotRunning:
      return PipeState::Absent;
    case Status::AccessDenied:
      return PipeState::Denied;
    case Status::TimedOut:
      return IsBusy(pipeName) ? PipeState::Blocked : PipeState::Silent;
    default:
      return PipeState::Failing;
  }
  for (const std::uint32_t process : pipes.ServerProcesses()) {
    if (!service || process == 0 || process == *service) continue;
    foreign = process;
    return PipeState::Foreign;
  }
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
