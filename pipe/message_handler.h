#pragma once

// How the pipe transport hands requests upward without knowing who carries them out.

struct PipeRequest;
struct PipeReply;
class PipeServerHandleThread;

class PipeServerMessageHandler {
 public:
  // Carries out one request and fills the reply, whose code is Done on entry. Called on the connection's own
  // thread, several at once. `request` is followed by a zero byte, so a text that is not terminated inside it
  // ends there. An exception that leaves it makes the transport reply Failed and end the connection.
  virtual void HandleMessage(const PipeRequest& request, PipeReply& reply) = 0;

  // The connection is over; called once, on its own thread, without any lock held. Passing it to
  // PipeServer::ReleaseConnection is the last thing to do here: with the connection off the list Join
  // returns, and the handler may be destroyed.
  virtual void ConnectionEnded(PipeServerHandleThread* connection) = 0;

 protected:
  ~PipeServerMessageHandler() = default;
};
