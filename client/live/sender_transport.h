#pragma once

// How an AsyncSender reaches the server: the few calls of a LogClient that it needs. One thread calls at a
// time, and every call has to return in bounded time.

#include "client/message/status.h"
#include "records/log_file_format.h"

namespace TamLogClient {

class SenderTransport {
 public:
  SenderTransport() = default;
  virtual ~SenderTransport() = default;
  SenderTransport(const SenderTransport&) = delete;
  SenderTransport& operator=(const SenderTransport&) = delete;

  // Sends a message, and connects before that if necessary. Ok: the server accepted it. Disconnected,
  // TimedOut: it is not known whether the message was stored if it has `left` this process. Refused, TooLong,
  // BadValue: it was not and never will be. Any other status: the server could not be reached.
  virtual Status Submit(const LogMessageBody& message, bool& left) = 0;
  // Keeps a silent connection alive. Any status but Ok: the connection is useless.
  virtual Status Ping() = 0;
  // Ends the connection, if there is one.
  virtual void Disconnect() = 0;
};

}  // namespace TamLogClient
