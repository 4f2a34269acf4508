// What the three timers do at every tick. Ticks of different timers run side by side; the store makes its two
// operations safe against each other.

#include "server/server_service.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"

using TamLogUtil::Exceptions::ExceptionBase;

// A failed tick is logged and the timer goes on, so a lasting fault writes one entry per tick. Only the
// exceptions of this system are caught: anything else, such as a genuine fault on the mapped file, is no
// failure of a tick and ends the timer's thread.
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
