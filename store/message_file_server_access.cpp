// The part that the open side and the write side of MessageFileServer share: the settings and write access.

#include "store/message_file_server.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"

using TamLogUtil::AccessObjects;
using TamLogUtil::Mutex;
using TamLogUtil::Timeout;
using TamLogUtil::WaitOutcome;
using TamLogUtil::Exceptions::ExceptionBase;

namespace {

constexpr char kCannotTake[] = "Failed to grab write access, some handles or pointers are invalid";
constexpr char kCannotRelease[] = "Failed to release write access, some handles or pointers are invalid";

void ThrowIfClosed(WaitOutcome outcome) {
  if (outcome == WaitOutcome::Closed) throw ExceptionBase(kCannotTake);
}

MessageFileServer* NotNull(MessageFileServer* server) {
  if (server == nullptr) {
    throw ExceptionBase("MessageFileServer WriteAccess object created with null pointer");
  }
  return server;
}

}  // namespace

MessageFileServer::Settings MessageFileServer::ReadSettings() {
  const Mutex::Access access(configLock, Timeout::Infinite);
  return {.logFile = configuration->logFile, .maxMessage = configuration->maxMessage};
}

// Takes the turn before anything that readers could notice.
MessageFileServer::WriteAccess::WriteAccess(MessageFileServer* fileServer, Timeout& timeout)
    : server(NotNull(fileServer)),
      objects(server->PresentTicket(kCannotTake).objects),
      turn(server->writerTurn, timeout, objects->Closing()) {
  ThrowIfClosed(turn.Outcome());
  ticket = server->TakeWriteAccess(timeout);
}

MessageFileServer::WriteAccess::~WriteAccess() noexcept(false) {
  unwindCheck.Finish([this] { server->ReleaseWriteAccess(ticket); });
}

MessageFileServer::Ticket MessageFileServer::TakeWriteAccess(Timeout& timeout) {
  Ticket ticket = PresentTicket(kCannotTake);
  AccessObjects& objects = *ticket.objects;

  // Lets readers finish that are counting themselves in or out. Releases the lock even when the time ran out:
  // a reader may have died between taking and releasing it.
  ThrowIfClosed(objects.TakeHeaderLock(timeout.Remaining()));
  const WaitOutcome otherWriters = objects.ReleaseHeaderLockAndWaitForReadWait(timeout.Remaining());
  ThrowIfClosed(otherWriters);
  if (otherWriters == WaitOutcome::TimedOut) {
    TamLogUtil::WriteLog("File access rights timed out, forcing access.");
  }
  HoldReadersOut(ticket, kCannotTake);
  try {
    ThrowIfClosed(objects.WaitForWriteWait(timeout.Remaining()));
  } catch (const ExceptionBase&) {
    if (IsOpen()) LetReadersIn(ticket, kCannotTake);
    throw;
  }
  return ticket;
}

void MessageFileServer::ReleaseWriteAccess(const Ticket& ticket) {
  const bool raise = changed.exchange(false);
  try {
    UseView(ticket, kCannotRelease, [&](MappedView& view) { view.PublishChanges(raise ? 1 : 0); });
  } catch (...) {
    // The next write access publishes the change; readers must not wait until then.
    if (raise) changed = true;
    LetReadersIn(ticket, kCannotRelease);
    throw;
  }
  LetReadersIn(ticket, kCannotRelease);
}
