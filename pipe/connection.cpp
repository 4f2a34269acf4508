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
  // Only when another thread destroys a running connection is there a thread to end; it must not touch the
  // members while they are destroyed.
  try {
    Terminate(1);
  } catch (const ExceptionBase&) {
    // It has already ended.
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

// Returns 0 on success, else the error code of a read that failed at once or the status of one that completed
// later.
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
    // The handler reports its own failures. After an exception its state is unknown, so this client gets a
    // last reply and is disconnected.
    reply.code = static_cast<std::uint32_t>(ReplyCode::Failed);
    lastRequest = true;
  }
}

// Returns false when the reply could not be written in time. Leaves a pending write to End: the client may
// read the reply until the pipe is disconnected.
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
  // A read or write that is still pending after a stop or time-out must end before its buffer goes.
  ioOverlap.Settle();
  if (connections != nullptr) connections->Leave(this);
}
