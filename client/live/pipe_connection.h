#pragma once

// The client's end of one connection to the server: both pipes, opened back to back, and one exchange at a
// time. Not thread-safe. docs/pipe_protocol.md describes the protocol.

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "client/live/call_deadline.h"
#include "client/live/handle.h"
#include "client/message/status.h"
#include "records/pipe_protocol.h"

namespace TamLogClient {

class PipeConnection {
 public:
  // `name` is the request pipe's. Without any pipe for `absentMilliseconds`, the server counts as not
  // running.
  PipeConnection(std::string name, std::uint32_t absentMilliseconds);

  bool IsOpen() const { return static_cast<bool>(replyPipe); }

  // Returns whether the connection was silent for so long that it must not be used any more: the server ends
  // one after ten silent seconds, and this one is close to it.
  bool IsStale() const;

  // Opens both pipes. NotRunning: no pipe existed for the whole absence time. TimedOut: the pipes stayed
  // busy. AccessDenied; SystemError. May exceed the deadline between the two pipes: by a second, and by ten
  // where the server makes the second one that late.
  Status Open(const CallDeadline& deadline);
  void Close();

  // Returns the processes that serve the request and the reply pipe that were opened last, also when they are
  // closed again; 0 where none was opened or the system does not say. Any process may offer pipes of these
  // names.
  std::array<std::uint32_t, 2> ServerProcesses() const { return servers; }

  // Sends a request and receives its reply. Sets `sent` to whether the request left the client. Any failure
  // closes the connection: a late reply could be taken for the answer to another request.
  Status Exchange(const PipeRequest& request, PipeReply& reply, const CallDeadline& deadline, bool& sent);

 private:
  Status OpenRequestPipe(const CallDeadline& deadline);
  bool OpenReplyPipe(bool& atOnce);
  bool ServerHasRequestPipe();
  bool TakeReplyPipe();
  bool Prove(const CallDeadline& deadline);
  bool Answers(const CallDeadline& limit, bool& dead);
  Status Write(const PipeRequest& request, const CallDeadline& deadline);
  Status Read(PipeReply& reply, const CallDeadline& deadline);

  std::string requestName;
  std::string replyName;
  std::uint32_t absentMs;
  Handle requestPipe;
  Handle replyPipe;
  Handle ioEvent;
  std::array<std::uint32_t, 2> servers{};
  // The answer to a request that was written when the reply pipe was not open, or was that of another pair.
  std::optional<ReplyCode> owed;
  bool proven = false;        // the two pipes are known to be of one pair
  std::uint64_t lastUse = 0;  // GetTickCount64
};

}  // namespace TamLogClient
