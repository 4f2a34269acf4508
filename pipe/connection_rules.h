#pragma once

// The decisions of a connection that need no system call: how to continue after a failed read, and which
// requests the transport answers itself. Standard library only.

#include <cstdint>
#include <optional>

#include "records/pipe_protocol.h"

enum class AfterFailedRead {
  EndConnection,      // the client is gone
  ReadRestOfMessage,  // the message is longer than a request; the next read gets the rest of it
  CancelReadAndEnd,   // no request arrived in time, or the connection was stopped
  TryAgain,           // any other error, as long as ReadRetries allows
};

// Decides how to continue after a failed read. `error` is the error code of a read that failed at once or the
// kernel's status of one that completed later. The two are numbered differently, so a message that turns out
// too long while the read waits (0x80000005) counts as any other error: its rest is then served as the next
// request. Clients depend on that.
AfterFailedRead JudgeFailedRead(std::uint32_t error);

// Counts the reads in a row that failed with an unexpected error. One thread.
class ReadRetries {
 public:
  // Returns whether to try another read: 11 times in a row.
  bool Allow();
  void Reset() { count = 0; }

 private:
  std::uint32_t count = 0;
};

// Returns the code of the reply that the transport sends itself; nothing when the handler has to answer.
std::optional<ReplyCode> ReplyWithoutHandler(bool overlong, std::uint32_t requestCode, bool handlerInstalled);
