#include "server/server_service.h"

#include <exception>
#include <string>

#include "server/configuration.h"
#include "server/driver_device.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"
#include "util/helpers.h"

using TamLogUtil::Mutex;
using TamLogUtil::Timeout;
using TamLogUtil::Exceptions::ExceptionBase;
using TamLogUtil::Exceptions::ExceptionWindows;

namespace {

constexpr std::uint32_t kFlushPeriod = 200;  // milliseconds, whatever the registry holds

// The time that a stop waits for the sequence before it; longer than a stop takes when all its waits run out.
constexpr std::uint32_t kTurnLimit = 20000;

// What is left for the waits of a stop whose turn did not come. Together they are less than the 30 s for
// which the service manager waits.
constexpr std::uint32_t kLateStopDeadline = 5000;

// The time that the destructor waits for a restart thread: a stop and a start.
constexpr std::uint32_t kRestartThreadLimit = 20000;

}  // namespace

ServerService::ServerService()
    : pipeServer(kRequestPipeName),
      driverPollTimer(kDriverPollTimer, "Driver Poll"),
      writeToDiskTimer(kWriteToDiskTimer, "Write To Disk"),
      flushWritesTimer(kFlushWritesTimer, "Flush Writes"),
      messageFile(&configuration, &configLock),
      driverHandle(TamLogUtil::InvalidHandle()) {}

ServerService::~ServerService() noexcept(false) {
  std::exception_ptr foreign;
  try {
    lifecycle.WantStopped();
    lifecycle.WaitForRestarts(kRestartThreadLimit);
    if (!stopped) ServerService::OnStop();
  } catch (const ExceptionBase& exception) {
    TamLogUtil::WriteLog("Exception thrown in service destructor : " + exception.Compose("\n"));
  } catch (...) {
    foreign = std::current_exception();
  }
  EndLeftoverThreads();
  CloseDriver();
  if (foreign) std::rethrow_exception(foreign);
}

void ServerService::OnStart() {
  const Lifecycle::Turn turn(lifecycle, Timeout::kForever);
  lifecycle.WantRunning();
  StartSequence();
}

void ServerService::OnStop() {
  lifecycle.WantStopped();
  const Lifecycle::Turn turn(lifecycle, kTurnLimit);
  StopSequence(turn.Taken() ? kStopDeadline : kLateStopDeadline);
}

void ServerService::Restart(const Lifecycle::RestartTicket& ticket) {
  const Lifecycle::Turn turn(lifecycle, Timeout::kForever);
  if (ticket.IsCancelled()) return;
  StopSequence(kStopDeadline);
  if (ticket.IsCancelled()) return;
  StartSequence();
}

void ServerService::StartSequence() {
  OpenDriver();
  AwaitFormerTicks();
  const Mutex::Access access(messageLock, Timeout::Infinite);
  pipeServer.SetMessageHandler(this);
  // Needed at every start: a timer's Stop forgets its callback.
  writeToDiskTimer.SetCallback(this);
  driverPollTimer.SetCallback(this);
  flushWritesTimer.SetCallback(this);
  Load();
  messageFile.OpenFile(kFileMapName, kHeaderLockName, kReadWaitEventName, kWriteWaitEventName);
  pipeServer.Start();
  driverPollTimer.Start();
  writeToDiskTimer.SetPeriod(SavePeriod());
  writeToDiskTimer.Start();
  flushWritesTimer.SetPeriod(kFlushPeriod);
  flushWritesTimer.Start();
  restarting = false;
  stopped = false;
}

// Stops the producers of work first, then the file, the driver last. Moves the file only when nothing in this
// process has it open.
void ServerService::StopSequence(std::uint32_t milliseconds) {
  Timeout deadline(milliseconds);
  RegistryKey mainKey(kConfigurationKey);
  const std::string currentPath = ReadLogFilePath(mainKey);
  Save();  // from here on the registry holds the path requested over the pipe
  flushWritesTimer.Stop();
  writeToDiskTimer.Stop();
  pipeServer.Stop();
  driverPollTimer.Stop();
  flushWritesTimer.Join(deadline);
  driverPollTimer.Join(deadline);
  pipeServer.Join(deadline);
  messageFile.CloseFile(deadline);
  // Waits for the file at the requested path. A new path has no file yet, so the wait ends at once, although
  // readers may still have the old file open during the move below.
  messageFile.WaitUntilFree(deadline);

  const Mutex::Access access(configLock, Timeout::Infinite);
  if (loaded && currentPath != configuration.logFile) {
    // A failed move is silent: the next start opens or creates the file at the new path.
    TamLogUtil::MoveFileIfPossible(currentPath, configuration.logFile);
  }
  // Under configLock, which a tick of this timer takes first: a tick that begins now waits for it, and this
  // join then runs until the deadline at most.
  writeToDiskTimer.Join(deadline);
  CloseDriver();
  stopped = true;
}

// Waits for ticks that a stop left running when its time ran out. Called before messageLock is taken: a late
// tick may be about to take it, and a timer's Start, which waits for the old thread too, would never return.
// A late tick that forces the file to the disk would also count as a foreign reader when the file is checked.
void ServerService::AwaitFormerTicks() {
  for (TamLogUtil::Timer* timer : {&flushWritesTimer, &writeToDiskTimer, &driverPollTimer}) {
    if (timer->IsStopRequested()) timer->Join(Timeout::Infinite);
  }
}

// Called before any lock is taken, so that a missing driver changes nothing.
void ServerService::OpenDriver() {
  if (driverHandle != TamLogUtil::InvalidHandle()) return;
  const TamLogUtil::NativeHandle device = OpenDriverDevice();
  if (device == TamLogUtil::InvalidHandle()) {
    throw ExceptionWindows("Failed to get access to the Tamlog device driver, CreateFile() failed.");
  }
  driverHandle = device;
}

void ServerService::CloseDriver() {
  const TamLogUtil::NativeHandle device = driverHandle.exchange(TamLogUtil::InvalidHandle());
  if (device != TamLogUtil::InvalidHandle()) TamLogUtil::CloseQuietly(device);
}

// Milliseconds, in 32 bits: the product wraps from 4,294,968 seconds on.
std::uint32_t ServerService::SavePeriod() {
  const Mutex::Access access(configLock, Timeout::Infinite);
  return configuration.saveRate * 1000U;
}

// Ends threads that remain after a start that failed half-way, or a stop that ran out of time or threw: they
// use members that are destroyed before the threads' own objects.
void ServerService::EndLeftoverThreads() {
  try {
    flushWritesTimer.Stop();
    writeToDiskTimer.Stop();
    driverPollTimer.Stop();
    pipeServer.Stop();
    Timeout deadline(kStopDeadline);
    flushWritesTimer.Join(deadline);
    writeToDiskTimer.Join(deadline);
    driverPollTimer.Join(deadline);
    pipeServer.Join(deadline);
  } catch (const ExceptionBase&) {
    // The members' own destructors end the remaining threads.
  }
}

void ServerService::ConnectionEnded(PipeServerHandleThread* connection) {
  pipeServer.ReleaseConnection(connection);
}
