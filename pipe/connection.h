#pragma once

// One connected client: a thread that reads its requests one at a time, passes each to the handler and writes
// the reply. pipe/connection_rules.h has the rules that need no system call.
//
// Always on the heap: the thread destroys the object when Run returns. A connection ends when its client is
// gone, sends nothing for 10 seconds or takes a reply too slowly, after 12 failed reads in a row, after an
// exception in the handler, or by Stop. Only the connection's own thread calls anything except Stop.

#include <cstdint>
#include <memory>

#include "pipe/connection_list.h"
#include "pipe/connection_rules.h"
#include "pipe/message_handler.h"
#include "pipe/overlap.h"
#include "records/pipe_protocol.h"
#include "util/native_handle.h"
#include "util/sync.h"
#include "util/thread.h"

class PipeServerHandleThread : public TamLogUtil::Threading::Thread {
 public:
  // Keeps duplicates of the two pipe handles; the caller's stay open. `handler` is not owned and must live
  // until its ConnectionEnded was called; null: every request is answered with Failed and the end is not
  // reported. `list` is the list that the connection is going to be added to, null for none. Throws what
  // Overlap throws.
  PipeServerHandleThread(TamLogUtil::NativeHandle requestInstance, TamLogUtil::NativeHandle replyInstance,
                         PipeServerMessageHandler* handler, std::shared_ptr<ConnectionList> list = nullptr);
  ~PipeServerHandleThread() override;
  PipeServerHandleThread(const PipeServerHandleThread&) = delete;
  PipeServerHandleThread& operator=(const PipeServerHandleThread&) = delete;

  // Ends a wait for the client at once. The handler finishes a request in progress, but its reply may be
  // lost. Returns at once. Any thread.
  void Stop() override;
  std::uint32_t Run() override;

 private:
  // The system never writes past the record, so the guard stays zero: it terminates a text that the client
  // did not terminate.
  struct GuardedRequest {
    PipeRequest record;
    std::uint8_t guard;
  };

  void Serve();
  std::uint32_t Read();
  bool MayGoOnAfter(std::uint32_t readError);
  void FillReply();
  bool WriteReply();
  void End();
  void Disconnect();

  PipeServerMessageHandler* const messageHandler;
  const std::shared_ptr<ConnectionList> connections;
  TamLogUtil::AutoHandle requestPipe;
  TamLogUtil::AutoHandle replyPipe;
  // Zero at first, then never cleared except the request's code: after a short request the earlier bytes
  // follow it, and a reply carries the earlier bytes of the fields that it does not set.
  GuardedRequest request{};
  PipeReply reply{};
  // After the buffers and the handles, so that its destructor ends a pending operation before they go.
  Overlap ioOverlap;
  ReadRetries retries;
  bool overlong = false;
  bool lastRequest = false;
};
