// The work of the three timers at every tick. Ticks of different timers run concurrently; the store makes its
// two operations safe against each other.

#include "server/server_service.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"

using TamLogUtil::Exceptions::ExceptionBase;

// Logs a failed tick, and the timer continues, so a lasting fault writes one entry per tick. Catches the
// ExceptionBase family only: anything else, such as a genuine fault on the mapped file, ends the timer's
// thread.
void ServerService::OnTimer(std::uint32_t timerId) {
  try {
    switch (timerId) {
      case kDriverPollTimer:
        PollDriver();
        break;
      case kWriteToDiskTimer:
        messageFile.WriteToDisk();
        break;
      case kFlushWritesTimer:
        messageFile.FlushWrites();
        break;
      default:
        break;
    }
  } catch (const ExceptionBase& exception) {
    TamLogUtil::WriteLog("Exception thrown in timer callback : " + exception.Compose("\n"));
  }
}
