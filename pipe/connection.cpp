#include "pipe/connection.h"

#include <cstddef>
#include <optional>
#include <utility>

#include "pipe/pipe_calls.h"
#include "util/exceptions.h"

using TamLogUtil::AutoHandle;
using TamLogUtil::NativeHandle;
using TamLogUtil::Exceptions::ExceptionBase;

namespace {

constexpr std::uint32_t kClientWaitMs = 10000;
constexpr std::uint32_t kDone = 0;

}  // namespace

PipeServerHandleThread::PipeServerHandleThread(NativeHandle requestInstance, NativeHandle replyInstance,
                                               PipeServerMessageHandler* handler,
                                               std::shared_ptr<ConnectionList> list)
    : Thread("Pipe Server Handle"),
      messageHandler(handler),
      connections(std::move(list)),
      requestPipe(requestInstance, AutoHandle::From::Copy),
      replyPipe(replyInstance, AutoHandle::From::Copy) {
  static_assert(offsetof(GuardedRequest, guard) == sizeof(PipeRequest));
  SetDeleteOnExit();
}

PipeServerHandleThread::~PipeServerHandleThread() {
  // No thread is left here, except when somebody else destroys a connection that still runs: it must not
  // touch the members while they are destroyed.
  try {
    Terminate(1);
  } catch (const ExceptionBase&) {
    // It has ended by itself already.
  }
}

void PipeServerHandleThread::Stop() {
  Thread::Stop();
  ioOverlap.Cancel();
}

std::uint32_t PipeServerHandleThread::Run() {
  try {
    Serve();
  } catch (...) {
    End();
    throw;
  }
  End();
  return 0;
}

void PipeServerHandleThread::Serve() {
  while (!IsStopRequested()) {
    const std::uint32_t readError = Read();
    if (IsStopRequested()) return;
    if (readError != kDone) {
      if (!MayGoOnAfter(readError)) return;
      continue;
    }
    retries.Reset();
    FillReply();
    if (!WriteReply()) return;
    if (lastRequest) return;
  }
}

// Returns 0 or why the read failed: an error code, or the status of a read that completed later.
std::uint32_t PipeServerHandleThread::Read() {
  // An empty message leaves the code at 0, which no request has.
  request.record.code = 0;
  const std::uint32_t error =
      PipeCalls::Read(requestPipe.Get(), &request.record, sizeof(request.record), ioOverlap.Overlapped());
  return ioOverlap.Result(requestPipe.Get(), error, kClientWaitMs);
}

bool PipeServerHandleThread::MayGoOnAfter(std::uint32_t readError) {
  switch (JudgeFailedRead(readError)) {
    case AfterFailedRead::EndConnection:
      return false;
    case AfterFailedRead::ReadRestOfMessage:
      overlong = true;
      return true;
    case AfterFailedRead::CancelReadAndEnd:
      ioOverlap.Settle();
      return false;
    case AfterFailedRead::TryAgain:
      break;
  }
  return retries.Allow();
}

void PipeServerHandleThread::FillReply() {
  const std::optional<ReplyCode> own =
      ReplyWithoutHandler(overlong, request.record.code, messageHandler != nullptr);
  overlong = false;
  reply.code = static_cast<std::uint32_t>(own.value_or(ReplyCode::Done));
  if (own.has_value()) return;
  try {
    messageHandler->HandleMessage(request.record, reply);
  } catch (...) {
    // The handler reports its own failures; what it lets out leaves it in an unknown state, so this client is
    // told and then sent away.
    reply.code = static_cast<std::uint32_t>(ReplyCode::Failed);
    lastRequest = true;
  }
}

// False when the reply could not be written in time. A write that still waits is left to End: the client may
// take the reply until the pipe is disconnected.
bool PipeServerHandleThread::WriteReply() {
  const std::uint32_t error =
      PipeCalls::Write(replyPipe.Get(), &reply, sizeof(reply), ioOverlap.Overlapped());
  return ioOverlap.Result(replyPipe.Get(), error, kClientWaitMs) == kDone;
}

void PipeServerHandleThread::End() {
  try {
    if (messageHandler != nullptr) messageHandler->ConnectionEnded(this);
  } catch (...) {
    Disconnect();
    throw;
  }
  Disconnect();
}

void PipeServerHandleThread::Disconnect() {
  PipeCalls::Disconnect(requestPipe.Get());
  PipeCalls::Disconnect(replyPipe.Get());
  // A read or write that a stop or the time-out left behind has to be over before its buffer goes.
  ioOverlap.Settle();
  if (connections != nullptr) connections->Leave(this);
}
