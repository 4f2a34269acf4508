// Fuzzes the messages of a request pipe, of any length: the actions of the connection (the requests that it
// forwards, their bytes, its own answers, the moment at which it gives up) have to agree with a second
// implementation of the rules in docs/pipe_protocol.md.
//
// Input: messages of two bytes of length and the bytes; a request whose last byte is 0xEE makes the handler
// fail.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "pipe/connection.h"
#include "pipe/message_handler.h"
#include "pipe/pipe_calls.h"
#include "records/pipe_protocol.h"
#include "tests/native/machine.h"
#include "tests/native/pipes.h"
#include "util/native_handle.h"
#include "util/sync.h"

namespace {

using Fuzz::Require;

constexpr std::size_t kMostMessages = 40;
constexpr std::size_t kLongest = 3500;  // more than three records
constexpr std::size_t kUnreadReplies = 3;
constexpr std::uint8_t kFails = 0xEE;

using Messages = std::vector<std::string>;

Messages TakeMessages(Fuzz::Input& input) {
  Messages messages;
  while (!input.Empty() && messages.size() < kMostMessages) {
    messages.push_back(input.TakeText(input.Take<std::uint16_t>() % kLongest));
  }
  return messages;
}

bool Fails(const PipeRequest& request) {
  return request.bytes[sizeof request.bytes - 1] == kFails;
}

// Returns the requests that reach the handler, if all messages are in the pipe before the first read, and the
// client reads its replies whenever the handler is called.
std::deque<PipeRequest> RequestsOf(const Messages& messages) {
  std::deque<PipeRequest> requests;
  PipeRequest record{};
  std::size_t unread = 0;
  for (const std::string& message : messages) {
    const bool overlong = message.size() > sizeof record;
    std::size_t read = 0;
    do {
      record.code = 0;
      const std::size_t part = std::min(message.size() - read, sizeof record);
      std::memcpy(&record, message.data() + read, part);
      read += part;
    } while (read < message.size());
    const bool handled = !overlong && record.code >= kFirstHandledCode && record.code <= kLastHandledCode;
    if (handled) {
      requests.push_back(record);
      unread = 0;
      if (Fails(record)) break;
    }
    if (++unread > kUnreadReplies) break;
  }
  return requests;
}

class Handler final : public PipeServerMessageHandler {
 public:
  Handler(std::deque<PipeRequest> requests, NativeMachine::PipeClient& pipeClient)
      : expected(std::move(requests)), client(pipeClient) {}

  void HandleMessage(const PipeRequest& request, PipeReply& reply) override {
    Require(!ended && !expected.empty());
    Require(std::memcmp(&request, &expected.front(), sizeof request) == 0);
    Require(reinterpret_cast<const std::uint8_t*>(&request)[sizeof request] == 0);
    Require(reply.code == static_cast<std::uint32_t>(ReplyCode::Done));
    expected.pop_front();
    TakeReplies();
    if (Fails(request)) throw std::runtime_error("a failure on request");
  }
  void ConnectionEnded(PipeServerHandleThread* /*connection*/) override {
    Require(!ended && expected.empty());
    ended = true;
  }
  bool Ended() const { return ended; }

 private:
  void TakeReplies() {
    while (client.Receive(std::chrono::milliseconds(0))) {
    }
  }

  std::deque<PipeRequest> expected;
  NativeMachine::PipeClient& client;
  bool ended = false;
};

void Serve(const Messages& messages) {
  const TamLogUtil::NativeHandle requests =
      PipeCalls::NewInstance(kRequestPipeName, PipeCalls::Direction::Inbound, nullptr);
  const TamLogUtil::NativeHandle replies = PipeCalls::NewInstance(
      std::string(kRequestPipeName) + kReplyPipeSuffix, PipeCalls::Direction::Outbound, nullptr);
  NativeMachine::PipeClient client;
  client.Attach(requests, replies);
  for (const std::string& message : messages) Require(client.Send(message.data(), message.size()));
  Handler handler(RequestsOf(messages), client);
  // The thread destroys itself.
  (new PipeServerHandleThread(requests, replies, &handler))->Start();
  NativeMachine::RunThreads();
  TamLogUtil::CloseQuietly(requests);
  TamLogUtil::CloseQuietly(replies);
  Require(handler.Ended());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  NativeMachine::Reset();
  NativeMachine::StandStill();
  Serve(TakeMessages(input));
  NativeMachine::Reset();
  return 0;
}
