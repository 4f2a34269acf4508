#pragma once

// How an AsyncSender reaches the server: the few calls of a LogClient that it needs. Called by one thread at
// a time; every call returns in bounded time.

#include "client/message/status.h"
#include "records/log_file_format.h"

namespace TamLogClient {

class SenderTransport {
 public:
  SenderTransport() = default;
  virtual ~SenderTransport() = default;
  SenderTransport(const SenderTransport&) = delete;
  SenderTransport& operator=(const SenderTransport&) = delete;

  // Connects by itself where needed. Disconnected and TimedOut leave open whether the message was stored;
  // Refused, TooLong and BadValue say that it was not and never will be; any other status but Ok says that
  // the server could not be reached.
  virtual Status Submit(const LogMessageBody& message) = 0;
  // Keeps a silent connection alive.
  virtual Status Ping() = 0;
  virtual void Disconnect() = 0;
};

}  // namespace TamLogClient
