#pragma once

// The client's side of the named pipes of the machine in memory: what a client of the two-pipe protocol does
// with its two handles. One thread at a time.

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "records/pipe_protocol.h"
#include "util/native_handle.h"

namespace NativeMachine {

struct Pipe;

class PipeClient {
 public:
  PipeClient() = default;
  ~PipeClient() { Close(); }
  PipeClient(const PipeClient&) = delete;
  PipeClient& operator=(const PipeClient&) = delete;

  // Opens both pipes, again and again until an instance is free or the time is up.
  bool Connect(std::chrono::milliseconds limit);
  bool OpenRequestPipe(std::chrono::milliseconds limit);
  bool OpenReplyPipe(std::chrono::milliseconds limit);
  // For a pair of instances that is not listened on.
  void Attach(TamLogUtil::NativeHandle requestInstance, TamLogUtil::NativeHandle replyInstance);

  // One message, 0 bytes too. False when the server has ended the connection.
  bool Send(const void* bytes, std::size_t size);
  // Nothing when none came in time or the server has ended the connection.
  std::optional<PipeReply> Receive(std::chrono::milliseconds limit);
  std::optional<PipeReply> Ask(const PipeRequest& request, std::chrono::milliseconds limit);
  void Close();

 private:
  std::shared_ptr<Pipe> requests;
  std::shared_ptr<Pipe> replies;
};

}  // namespace NativeMachine
