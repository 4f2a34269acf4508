#pragma once

// The client's side of the named pipes of the machine in memory: the operations of a client of the two-pipe
// protocol. One thread at a time.

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

  // Opens both pipes; retries until an instance is free or the time runs out.
  bool Connect(std::chrono::milliseconds limit);
  bool OpenRequestPipe(std::chrono::milliseconds limit);
  bool OpenReplyPipe(std::chrono::milliseconds limit);
  // For a pair of instances that is not listened on.
  void Attach(TamLogUtil::NativeHandle requestInstance, TamLogUtil::NativeHandle replyInstance);

  // Sends one message, of 0 bytes too. Returns false when the server has ended the connection.
  bool Send(const void* bytes, std::size_t size);
  // Returns nothing when the time ran out or the server has ended the connection.
  std::optional<PipeReply> Receive(std::chrono::milliseconds limit);
  std::optional<PipeReply> Ask(const PipeRequest& request, std::chrono::milliseconds limit);
  void Close();

 private:
  std::shared_ptr<Pipe> requests;
  std::shared_ptr<Pipe> replies;
};

}  // namespace NativeMachine
