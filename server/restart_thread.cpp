#include "server/restart_thread.h"

#include <utility>

#include "server/server_service.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"

using TamLogUtil::Mutex;
using TamLogUtil::Timeout;
using TamLogUtil::Exceptions::ExceptionBase;

RestartThread::RestartThread(ServerService& serverService)
    : Thread("Restart Thread"), service(serverService), ticket(serverService.NewRestartTicket()) {
  SetDeleteOnExit();
}

std::uint32_t RestartThread::Run() {
  Lifecycle::RestartTicket presence(std::move(ticket));
  if (ClaimRestart(service)) return 0;  // a restart is already pending or in progress
  if (presence.Delay(kDelay)) service.Restart(presence);
  return 0;
}

bool ClaimRestart(ServerService& service) {
  try {
    const Mutex::Access access(service.restartLock, Timeout::Infinite);
    return service.restarting.exchange(true);
  } catch (const ExceptionBase& exception) {
    TamLogUtil::WriteLog("Exception thrown in restarting flag verifier : " + exception.Compose("\n"));
    return false;
  }
}
