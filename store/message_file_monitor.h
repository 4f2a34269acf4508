#pragma once

// A thread that takes write access to a log file every few seconds and releases it at once. The end of a
// write access sets readCount to 0 and lets readers in, so this frees the file from readers that died or hang
// while they hold read access, and it publishes a change that waits for a write access.
//
// In this service it stays dormant on purpose: MessageFileServer constructs it without a server to watch and
// never starts it, so a reader that dies inside read access blocks the next flush until its event is
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
  // `fileServer` is not owned; null: nothing to watch. In milliseconds, `intervalMs` is the time from the
  // start of a pass to the start of the next, `timeoutMs` the time a pass waits for readers before it forces
  // access.
  MessageFileMonitor(MessageFileServer* fileServer, std::uint32_t intervalMs, std::uint32_t timeoutMs);
  // Stops a running thread and waits for it.
  ~MessageFileMonitor() override;

  // Sets the server to watch, before Start. A pass in progress may finish with the old one. Any thread.
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
