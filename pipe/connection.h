#pragma once

// One connected client: a thread that reads its requests one at a time, hands each to the handler and writes
// the reply back. The rules that need no system call are in pipe/connection_rules.h.
//
// Always on the heap: the thread destroys the object when Run returns. A connection ends when its client is
// gone, sends nothing for 10 seconds, takes a reply too slowly, after 12 failed reads in a row, after an
// exception in the handler, or by Stop. Everything except Stop is used by the connection's own thread only.

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
  // Keeps duplicates of the two pipe handles; the caller's stay open. `handler` is not owned and has to live
  // until ConnectionEnded has been called; null: every request is answered with Failed and nobody is told of
  // the end. `list` is where the connection is going to be listed, if it is. Throws what Overlap throws.
  PipeServerHandleThread(TamLogUtil::NativeHandle requestInstance, TamLogUtil::NativeHandle replyInstance,
                         PipeServerMessageHandler* handler, std::shared_ptr<ConnectionList> list = nullptr);
  ~PipeServerHandleThread() override;
  PipeServerHandleThread(const PipeServerHandleThread&) = delete;
  PipeServerHandleThread& operator=(const PipeServerHandleThread&) = delete;

  // Ends a wait for the client at once; a request that the handler is working on is finished first, without
  // a reply being guaranteed. Returns at once. Any thread.
  void Stop() override;
  std::uint32_t Run() override;

 private:
  // The system never writes behind the record, so the guard stays zero: a text that a client did not
  // terminate ends there at the latest.
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
  // Zero at first, then never cleared except the request's code: a short request leaves the earlier bytes
  // behind it, and a reply carries the earlier bytes of the fields that it does not set.
  GuardedRequest request{};
  PipeReply reply{};
  // Behind the buffers and the handles, so that it is destroyed, and with it any operation ended, before
  // them.
  Overlap ioOverlap;
  ReadRetries retries;
  bool overlong = false;
  bool lastRequest = false;
};
