#pragma once

// A thread that takes write access to a log file every few seconds and gives it back at once. The end of a
// write access counts no readers any more and lets readers in, so this frees the file from readers that died
// or hang while they hold read access, and it publishes a change that waits for a write access.
//
// In this service it stays dormant on purpose: MessageFileServer constructs it without a server to watch and
// nobody starts it, so a reader that dies inside read access blocks the next flush until its event is
// signalled.
//
// `lock` guards the server pointer and is held only to read or set it. A pass takes the watched file's
// in-process lock and, inside it, write access.

#include <cstdint>

#include "util/sync.h"
#include "util/thread.h"
#include "util/thread_annotations.h"

class MessageFileServer;

class MessageFileMonitor : public TamLogUtil::Threading::Thread {
 public:
  // `fileServer` is not owned and may be null: nothing to watch. `intervalMs` is the time from the start of a
  // pass to the start of the next, `timeoutMs` how long a pass waits for readers before it forces its way;
  // milliseconds.
  MessageFileMonitor(MessageFileServer* fileServer, std::uint32_t intervalMs, std::uint32_t timeoutMs);
  // Asks a running thread to end and waits for it.
  ~MessageFileMonitor() override;

  // For a host that wants a file watched: set the server, then Start. A pass in progress may go on with the
  // old one. Any thread.
  void SetServer(MessageFileServer* fileServer);

  std::uint32_t Run() override;

 private:
  void FreeFile();
  void SleepRest(std::uint32_t milliseconds);

  TamLogUtil::Mutex lock;
  MessageFileServer* server GUARDED_BY(lock);
  const std::uint32_t interval;
  const std::uint32_t timeout;
};
