#pragma once

// The client's end of one connection: both pipes, opened back to back, and one exchange at a time. Not
// thread-safe.

#include <cstdint>
#include <string>

#include "client/live/call_deadline.h"
#include "client/live/handle.h"
#include "client/message/status.h"
#include "records/pipe_protocol.h"

namespace TamLogClient {

class PipeConnection {
 public:
  PipeConnection(std::string name, std::uint32_t absentMilliseconds);

  bool IsOpen() const { return static_cast<bool>(replyPipe); }

  // The server ends a connection that was silent for ten seconds; one that is close to it is not trusted.
  bool IsStale() const;

  // NotRunning when there was no pipe for the whole of the absence time, AccessDenied, or TimedOut when the
  // pipes stayed busy.
  Status Open(const CallDeadline& deadline);
  void Close();

  // `sent` tells whether the request left the client. Any failure closes the connection: a late reply could
  // be taken for the answer to another request.
  Status Exchange(const PipeRequest& request, PipeReply& reply, const CallDeadline& deadline, bool& sent);

 private:
  Status OpenRequestPipe(const CallDeadline& deadline);
  bool OpenReplyPipe(bool& atOnce);
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
  bool proven = false;  // the two pipes are of one pair
  std::uint64_t lastUse = 0;
};

}  // namespace TamLogClient
