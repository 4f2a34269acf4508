#include "pipe/pipe_server.h"

#include <algorithm>
#include <new>
#include <utility>

#include "pipe/connection.h"
#include "pipe/pipe_calls.h"
#include "pipe/security_attributes.h"
#include "records/pipe_protocol.h"
#include "util/clock.h"
#include "util/exceptions.h"

using TamLogUtil::AutoHandle;
using TamLogUtil::Mutex;
using TamLogUtil::NativeHandle;
using TamLogUtil::Timeout;
using TamLogUtil::Exceptions::ExceptionBase;

namespace {

constexpr std::uint32_t kJoinStepMs = 250;
constexpr std::uint32_t kDestructionWaitMs = 2000;

// Returns whether action() succeeded; drops its failure.
template <class Action>
bool TryTo(const Action& action) {
  try {
    action();
    return true;
  } catch (const ExceptionBase&) {
    return false;
  }
}

}  // namespace

PipeServer::PipeServer(const std::string& name)
    : Thread("Pipe Server"),
      requestPipeName(name),
      replyPipeName(name + kReplyPipeSuffix),
      connections(std::make_shared<ConnectionList>()) {}

PipeServer::~PipeServer() {
  // Failures are dropped: a later step makes up for a failed one. Stop and Join are retried once, because a
  // listener that was not woken or waited for is terminated and leaves its pipes open.
  const auto stop = [this] { PipeServer::Stop(); };
  if (!TryTo(stop)) TryTo(stop);
  TryTo([this] { connections->StopAll(); });
  const auto join = [this] {
    Timeout timeout(kDestructionWaitMs);
    PipeServer::Join(timeout);
  };
  if (!TryTo(join)) TryTo(join);
  // A listener that is still running would use listenOverlap during its destruction.
  TryTo([this] { Terminate(1); });
  connections->EndAll();
}

void PipeServer::SetMessageHandler(PipeServerMessageHandler* handler) {
  messageHandler = handler;
}

void PipeServer::Start() {
  if (IsStopRequested()) Thread::Join(Timeout::Infinite);
  listenOverlap.Reset();
  Thread::Start();
}

void PipeServer::Stop() {
  Thread::Stop();
  listenOverlap.Cancel();
  const Mutex::Access access(connectionsLock, Timeout::Infinite);
  connections->StopAll();
}

bool PipeServer::Join(Timeout& timeout) {
  bool open = HasConnections(timeout);
  while (open && !timeout.Expired()) {
    TamLogUtil::SleepFor(std::min(kJoinStepMs, timeout.Remaining()));
    open = HasConnections(timeout);
  }
  const bool listenerEnded = Thread::Join(timeout);
  return listenerEnded && !open;
}

bool PipeServer::HasConnections(Timeout& timeout) {
  const Mutex::Access access(connectionsLock, timeout);
  return !connections->IsEmpty();
}

std::uint32_t PipeServer::Run() {
  while (!IsStopRequested()) {
    EveryoneSecurity security(kPipeAccess);
    const AutoHandle requestPipe(PipeCalls::NewInstance(requestPipeName, PipeCalls::Direction::Inbound,
                                                        security.GetSecurityAttributes()),
                                 AutoHandle::From::Take);
    const AutoHandle replyPipe(PipeCalls::NewInstance(replyPipeName, PipeCalls::Direction::Outbound,
                                                      security.GetSecurityAttributes()),
                               AutoHandle::From::Take);
    // Deliberately silent, see the header.
    if (requestPipe.IsInvalid() || replyPipe.IsInvalid()) return 1;
    AcceptClient(requestPipe.Get(), replyPipe.Get());
  }
  return 0;
}

// Waits until one client has connected to both instances and starts its connection. Returns without a
// connection after Stop, and when the client has already left (232): the caller then creates new instances.
void PipeServer::AcceptClient(NativeHandle requestPipe, NativeHandle replyPipe) {
  const std::uint32_t requestError = AwaitClient(requestPipe);
  const std::uint32_t replyError = AwaitClient(replyPipe);
  if (IsStopRequested()) return;
  const auto connected = [](std::uint32_t error) {
    return error == 0 || error == PipeCalls::kAlreadyConnected;
  };
  if (!connected(requestError) || !connected(replyError)) return;
  StartConnection(requestPipe, replyPipe);
}

std::uint32_t PipeServer::AwaitClient(NativeHandle pipe) {
  const std::uint32_t error =
      listenOverlap.Result(pipe, PipeCalls::Connect(pipe, listenOverlap.Overlapped()), Timeout::kForever);
  // Ends an operation that a stop left pending: the next one uses the same OVERLAPPED.
  listenOverlap.Settle();
  return error;
}

void PipeServer::StartConnection(NativeHandle requestPipe, NativeHandle replyPipe) {
  std::unique_ptr<PipeServerHandleThread> connection(
      new (std::nothrow) PipeServerHandleThread(requestPipe, replyPipe, messageHandler, connections));
  if (connection == nullptr) return;
  const Mutex::Access access(connectionsLock, Timeout::Infinite);
  // Stop sets the flag before it takes the lock and stops the listed connections. So either the flag is seen
  // here, or the connection is stopped there.
  if (IsStopRequested()) return;
  connections->AddAndStart(std::move(connection));
}

void PipeServer::ReleaseConnection(PipeServerHandleThread* connection) {
  if (connection == nullptr) return;
  {
    const Mutex::Access access(connectionsLock, Timeout::Infinite);
    connections->Remove(connection);
  }
  connection->Stop();
}
