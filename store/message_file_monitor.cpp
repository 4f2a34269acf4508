#include "store/message_file_monitor.h"

#include "store/message_file_server.h"
#include "util/clock.h"
#include "util/clock_arithmetic.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"

using TamLogUtil::Mutex;
using TamLogUtil::Timeout;
using TamLogUtil::Exceptions::ExceptionBase;

namespace {

constexpr std::uint32_t kStepMs = 1000;

}  // namespace

MessageFileMonitor::MessageFileMonitor(MessageFileServer* fileServer, std::uint32_t intervalMs,
                                       std::uint32_t timeoutMs)
    : Thread("MessageFileMonitor"), server(fileServer), interval(intervalMs), timeout(timeoutMs) {}

MessageFileMonitor::~MessageFileMonitor() {
  try {
    Stop();
    Join(Timeout::Infinite);
  } catch (const ExceptionBase&) {  // NOLINT(bugprone-empty-catch): the base ends a thread that still runs
  }
}

void MessageFileMonitor::SetServer(MessageFileServer* fileServer) {
  const Mutex::Access access(lock, Timeout::Infinite);
  server = fileServer;
}

// A failed pass is followed by the next at once, without the sleep, so that a file that is open again is
// noticed soon.
std::uint32_t MessageFileMonitor::Run() {
  while (!IsStopRequested()) {
    try {
      const TamLogUtil::WaitClock clock;
      FreeFile();
      const auto elapsed = static_cast<std::uint32_t>(TamLogUtil::ElapsedMilliseconds(0, clock.Ticks()));
      if (IsStopRequested() || elapsed >= interval) continue;
      SleepRest(interval - elapsed);
    } catch (const ExceptionBase& failure) {
      TamLogUtil::WriteLog("Exception was thrown in the MessageFileMonitor thread -" + failure.Compose("\n"));
    }
  }
  return 0;
}

void MessageFileMonitor::FreeFile() {
  Timeout passTimeout(timeout);
  MessageFileServer* watched = nullptr;
  {
    const Mutex::Access access(lock, Timeout::Infinite);
    watched = server;
  }
  if (watched == nullptr) return;
  const Mutex::Access inProcess(watched->InProcessLock(), Timeout::Infinite);
  const MessageFileServer::WriteAccess access(watched, passTimeout);
}

void MessageFileMonitor::SleepRest(std::uint32_t milliseconds) {
  for (std::uint32_t step = 0; step < milliseconds / kStepMs; ++step) {
    TamLogUtil::SleepFor(kStepMs);
    if (IsStopRequested()) return;
  }
  TamLogUtil::SleepFor(milliseconds % kStepMs);
}
