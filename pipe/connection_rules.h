#pragma once

// What a connection decides without asking the system: how to go on after a failed read, and which replies
// the transport gives by itself. Standard library only.

#include <cstdint>
#include <optional>

#include "records/pipe_protocol.h"

enum class AfterFailedRead {
  EndConnection,      // the client is gone
  ReadRestOfMessage,  // the message is longer than a request; the next read takes the rest of it
  CancelReadAndEnd,   // nothing came in time, or the connection was stopped
  TryAgain,           // anything else, as long as ReadRetries allows
};

// `error` is the error code of a read that failed at once or the kernel's status of one that completed later.
// The two are numbered differently, so a message that turns out too long while the read waits (0x80000005)
// counts as "anything else": its rest is then served as the next request. Clients see that behaviour.
AfterFailedRead JudgeFailedRead(std::uint32_t error);

// Counts the reads that failed in a row for no known reason. One thread.
class ReadRetries {
 public:
  // Whether another read may be tried: 11 times in a row, no more.
  bool Allow();
  void Reset() { count = 0; }

 private:
  std::uint32_t count = 0;
};

// The code of the reply that the transport gives by itself; nothing when the handler has to be asked.
std::optional<ReplyCode> ReplyWithoutHandler(bool overlong, std::uint32_t requestCode, bool handlerInstalled);
