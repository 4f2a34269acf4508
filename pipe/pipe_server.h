#pragma once

// The listener: accepts clients on the server's pair of named pipes and starts a thread for each
// (pipe/connection.h).
//
// A client opens the request pipe (written by the client) and then the reply pipe (read by the client), whose
// name is that of the request pipe followed by "Reply". One instance of each is free at a time, so the opens
// of two clients cannot be mixed up; a client that opens only the request pipe keeps all others waiting until
// it opens the reply pipe too.
//
// connectionsLock orders the adding, stopping and releasing of connections. Join may continue without it when
// its time runs out, so ConnectionList has its own lock, taken inside connectionsLock, which guards the list
// itself.

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
  // Stops everything within two seconds; terminates a connection whose handler takes longer.
  ~PipeServer() override;
  PipeServer(const PipeServer&) = delete;
  PipeServer& operator=(const PipeServer&) = delete;

  // Sets the handler of clients that connect from now on. Not owned; it must live until all connections have
  // ended and must pass each ended connection to ReleaseConnection. Any thread.
  void SetMessageHandler(PipeServerMessageHandler* handler);

  // Starts accepting clients, also after Stop. Waits first for a listener that was stopped but has not ended,
  // so that no two use the same OVERLAPPED. Throws what Overlap::Reset and Thread::Start throw.
  void Start() override;
  // Requests the end of the listener and all connections and returns at once. Any thread. Throws what
  // Overlap::Cancel throws.
  void Stop() override;
  // Waits until no connection is left, polling every 250 ms, and then for the listener. Returns false when
  // the time ran out first. Throws what Thread::Join throws.
  bool Join(TamLogUtil::Timeout& timeout) override;
  // Returns 0 after Stop, or 1 when a pipe instance cannot be created, for example because another program
  // owns the name. That end is silent: nothing is logged, and the server continues without clients.
  std::uint32_t Run() override;

  // Removes an ended connection from the list, if it is listed, and stops it. The handler's ConnectionEnded
  // calls this on the connection's own thread. Null does nothing.
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
