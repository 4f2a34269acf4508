#pragma once

// Stops and starts the server a second after a request changed settings that take effect at a start. The
// request itself cannot do that: a stop waits for the thread that serves it. ServerService's restarting flag
// turns a burst of such requests into one restart.

#include <cstdint>

#include "server/lifecycle.h"
#include "util/thread.h"

class ServerService;

class RestartThread : public TamLogUtil::Threading::Thread {
 public:
  // The delay of the restart in milliseconds: the client's reply is sent first, and later requests of the
  // same burst find the flag set.
  static constexpr std::uint32_t kDelay = 1000;

  // Must be on the heap: once started it deletes itself and is never joined. `serverService` is not owned;
  // its destructor waits for this object's ticket.
  explicit RestartThread(ServerService& serverService);

  // An exception of the stop or the start is logged and ends the thread; the flag then stays set until the
  // service is started successfully in another way.
  std::uint32_t Run() override;

 private:
  ServerService& service;
  Lifecycle::RestartTicket ticket;
};

// Sets the restarting flag and returns its previous value. If the flag's lock cannot be taken, logs that and
// returns false, so that the restart is carried out. Any thread.
bool ClaimRestart(ServerService& service);
