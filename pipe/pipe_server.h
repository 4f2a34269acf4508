#pragma once

// The listener: accepts clients on the server's pair of named pipes and gives each a thread of its own
// (pipe/connection.h).
//
// A client opens the request pipe (written by the client) and then the reply pipe (read by the client), whose
// name is that of the request pipe followed by "Reply". There is one free instance of each at a time, so the
// two opens of one client cannot be mixed up with another's; a client that opens only the request pipe keeps
// all others waiting until it opens the reply pipe too.
//
// connectionsLock guards the order in which connections are listed, stopped and released. Join may go on
// without it when its time is up, so it alone does not keep the list whole: ConnectionList has a lock of its
// own for that, taken inside connectionsLock.

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "pipe/connection_list.h"
#include "pipe/message_handler.h"
#include "pipe/overlap.h"
#include "util/sync.h"
#include "util/thread.h"
#include "util/timeout.h"

class PipeServerHandleThread;

class PipeServer : public TamLogUtil::Threading::Thread {
 public:
  // `name` is the request pipe's full name. Throws what Overlap and Mutex throw.
  explicit PipeServer(const std::string& name);
  // Stops everything and allows two seconds for it; a connection whose handler takes longer is ended by
  // force.
  ~PipeServer() override;
  PipeServer(const PipeServer&) = delete;
  PipeServer& operator=(const PipeServer&) = delete;

  // Who carries out the requests of clients that connect from now on; not owned, has to live until all
  // connections have ended, and has to pass each ended connection to ReleaseConnection. Any thread.
  void SetMessageHandler(PipeServerMessageHandler* handler);

  // Accepts clients; again after Stop. A listener that was stopped but has not ended yet is waited for first,
  // so that never two use the same OVERLAPPED. Throws what Overlap::Reset and Thread::Start throw.
  void Start() override;
  // Asks the listener and all connections to end and returns at once. Any thread. Throws what Overlap::Cancel
  // throws.
  void Stop() override;
  // Waits until no connection is left, looking every 250 ms, and then for the listener. False when the time
  // ran out first. Throws what Thread::Join throws.
  bool Join(TamLogUtil::Timeout& timeout) override;
  // Returns 0 after Stop, or 1 when a pipe instance cannot be created, for example because another program
  // owns the name. That end is silent: nothing is logged and nobody is told, the server goes on without
  // clients.
  std::uint32_t Run() override;

  // The connection has ended: takes it off the list and stops it, listed or not. Called on the connection's
  // own thread, by the handler's ConnectionEnded. Null does nothing.
  void ReleaseConnection(PipeServerHandleThread* connection);

 private:
  void AcceptClient(TamLogUtil::NativeHandle requestPipe, TamLogUtil::NativeHandle replyPipe);
  std::uint32_t AwaitClient(TamLogUtil::NativeHandle pipe);
  void StartConnection(TamLogUtil::NativeHandle requestPipe, TamLogUtil::NativeHandle replyPipe);
  bool HasConnections(TamLogUtil::Timeout& timeout);

  Overlap listenOverlap;
  const std::string requestPipeName;
  const std::string replyPipeName;
  std::atomic<PipeServerMessageHandler*> messageHandler{nullptr};
  const std::shared_ptr<ConnectionList> connections;
  TamLogUtil::Mutex connectionsLock;
};
