#pragma once

// A client of the two-pipe protocol for tests: opens the request pipe and the reply pipe, sends requests and
// receives replies. Every wait is bounded, so a test that uses it can fail but not hang.
//
// One thread at a time, except that one may send while another receives.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "records/pipe_protocol.h"
#include "tests/support/requests.h"
#include "util/native_handle.h"

namespace TestSupport {

class PipeClient {
 public:
  static constexpr std::uint32_t kWaitMs = 10000;

  explicit PipeClient(std::string pipeName = kRequestPipeName);
  ~PipeClient();
  PipeClient(const PipeClient&) = delete;
  PipeClient& operator=(const PipeClient&) = delete;

  // Opens both pipes in direct succession. Retries until the time is up while another client has just taken
  // the instance (231) or the server has not created it yet (2). Returns false then, and at once after any
  // other error.
  bool Connect(std::uint32_t milliseconds = kWaitMs);
  bool OpenRequestPipe(std::uint32_t milliseconds = kWaitMs);
  bool OpenReplyPipe(std::uint32_t milliseconds = kWaitMs);
  void CloseRequestPipe();
  void CloseReplyPipe();
  void Disconnect();

  // Sends one message of `size` bytes; a message of 0 bytes is valid. Returns false when it was not taken in
  // time or the server is gone.
  bool SendBytes(const void* bytes, std::size_t size, std::uint32_t milliseconds = kWaitMs);
  bool Send(const PipeRequest& request, std::uint32_t milliseconds = kWaitMs);
  // Returns the next reply; nothing when none came in time, the server disconnected, or the message does not
  // have the size of a reply. LastError distinguishes them: 258 for the time, 0 for the size.
  std::optional<PipeReply> Receive(std::uint32_t milliseconds = kWaitMs);
  // Combines Send and Receive.
  std::optional<PipeReply> Call(const PipeRequest& request, std::uint32_t milliseconds = kWaitMs);
  // Calls with a request that has only a code; returns the reply's code, or 0 when there was none.
  std::uint32_t CallCode(std::uint32_t code, std::uint32_t milliseconds = kWaitMs);

  // Returns whether the server closes this connection within the time. Replies that arrive meanwhile are
  // dropped.
  bool WaitUntilDisconnected(std::uint32_t milliseconds = kWaitMs);

  // Returns the system's code of the last operation that failed.
  std::uint32_t LastError() const { return lastError; }
  // For queries to the system; this object keeps ownership. Null when not open.
  TamLogUtil::NativeHandle RequestPipe() const { return requestPipe; }
  TamLogUtil::NativeHandle ReplyPipe() const { return replyPipe; }

 private:
  using NativeHandle = TamLogUtil::NativeHandle;

  NativeHandle Open(const std::string& name, std::uint32_t access, std::uint32_t milliseconds);
  struct Operation;
  bool Finish(NativeHandle pipe, Operation& operation, bool done, std::uint32_t& transferred,
              std::uint32_t milliseconds);

  std::string requestName;
  std::string replyName;
  NativeHandle requestPipe = nullptr;
  NativeHandle replyPipe = nullptr;
  std::atomic<std::uint32_t> lastError{0};
  std::unique_ptr<Operation> sending;
  std::unique_ptr<Operation> receiving;
};

// Returns `name` made unique for this process: all test programs of a prefix share pipes with fixed names.
std::string PipeNameForThisProcess(const std::string& name);

}  // namespace TestSupport
