#pragma once

// The interface through which the pipe transport passes requests up to the server.

struct PipeRequest;
struct PipeReply;
class PipeServerHandleThread;

class PipeServerMessageHandler {
 public:
  // Carries out one request and fills the reply, whose code is Done on entry. Called on the connection's own
  // thread, for several connections at once. A zero byte follows `request` and terminates a text that is not
  // terminated inside it. After an exception the transport replies Failed and ends the connection.
  virtual void HandleMessage(const PipeRequest& request, PipeReply& reply) = 0;

  // Reports the end of a connection. Called once, on its own thread, without any lock held. Must pass the
  // connection to PipeServer::ReleaseConnection as its last step: as soon as the connection is off the list
  // Join returns, and the handler may be destroyed.
  virtual void ConnectionEnded(PipeServerHandleThread* connection) = 0;

 protected:
  ~PipeServerMessageHandler() = default;
};
