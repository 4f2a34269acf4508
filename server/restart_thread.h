#pragma once

// Stops and starts the server a second after a request changed settings that only a start takes up. The
// request itself cannot: a stop waits for the very thread that serves it. ServerService's restarting flag
// makes a burst of such requests one restart.

#include <cstdint>

#include "server/lifecycle.h"
#include "util/thread.h"

class ServerService;

class RestartThread : public TamLogUtil::Threading::Thread {
 public:
  // How long the restart waits: the client's reply leaves first, and later requests of the same burst find
  // the flag set. Milliseconds.
  static constexpr std::uint32_t kDelay = 1000;

  // Has to be on the heap: once started it deletes itself, and nobody joins it. `serverService` is not owned;
  // it waits in its destructor for this object's ticket.
  explicit RestartThread(ServerService& serverService);

  // An exception from the stop or the start ends the thread, which logs it; the flag then stays set until the
  // service has been started successfully by other means.
  std::uint32_t Run() override;

 private:
  ServerService& service;
  Lifecycle::RestartTicket ticket;
};

// The restarting flag verifier: returns the flag's previous value and leaves it set. When the flag's lock
// cannot be taken, logs that and returns false, so that the restart goes ahead. Any thread.
bool ClaimRestart(ServerService& service);
