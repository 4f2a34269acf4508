#pragma once

// Keeps the starts and stops of the one service object from running into each other. They come from two
// sides: the service manager's threads, and a restart thread that stops and starts the server a second after
// its settings changed. Three things must not happen: two sequences at once, a restart that starts the server
// again after the manager has stopped it, and the service object being deleted under a live restart thread.
//
//  - a start or stop sequence runs inside a Turn;
//  - what the manager wants is noted by WantStopped before its turn comes, so that a restart gives way;
//  - a restart thread holds a RestartTicket as long as it may touch the service object.
//
// `lock` guards the three fields that follow it; it is a leaf. A turn is the outermost of all locks. Any
// thread.

#include <cstdint>

#include "util/leaf_lock.h"
#include "util/sync.h"
#include "util/thread_annotations.h"

class Lifecycle {
 public:
  class Turn;
  class RestartTicket;

  Lifecycle();
  Lifecycle(const Lifecycle&) = delete;
  Lifecycle& operator=(const Lifecycle&) = delete;

  // The server is to be stopped for good: restarts under way give up at their next step, at once when they
  // are asleep.
  void WantStopped();
  // The server is to run (again): restarts asked for from now on go ahead.
  void WantRunning();
  // Waits until no ticket is out. False when the time ran out.
  bool WaitForRestarts(std::uint32_t milliseconds);

 private:
  void TakeTicket();
  void ReturnTicket();

  TamLogUtil::Mutex sequenceTurn;
  TamLogUtil::Event stopSignal;      // signalled while stopWanted
  TamLogUtil::Event noRestartsLeft;  // signalled while tickets == 0
  TamLogUtil::LeafLock lock;
  bool stopWanted GUARDED_BY(lock) = false;
  std::uint64_t stops GUARDED_BY(lock) = 0;  // calls of WantStopped
  std::uint32_t tickets GUARDED_BY(lock) = 0;
};

// The right to run a start or stop sequence; scoped, used by one thread.
class Lifecycle::Turn {
 public:
  // Waits for the sequence that is under way, at most `milliseconds`, and then goes on without the turn: a
  // restart that hangs behind a dead reader must not keep the manager from stopping the service.
  Turn(Lifecycle& lifecycle, std::uint32_t milliseconds);
  ~Turn();
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  Lifecycle& owner;
  bool taken;
};

// Shows that a restart thread is alive. Moved from the thread object into Run, so that it is given back on
// every way out of Run, before the thread object deletes itself. Used by one thread at a time.
class Lifecycle::RestartTicket {
 public:
  // `lifecycle` has to live until this is destroyed.
  explicit RestartTicket(Lifecycle& lifecycle);
  RestartTicket(RestartTicket&& other) noexcept;
  ~RestartTicket();
  RestartTicket(const RestartTicket&) = delete;
  RestartTicket& operator=(const RestartTicket&) = delete;
  RestartTicket& operator=(RestartTicket&&) = delete;

  // Sleeps. False, and early, when the server is to be stopped.
  bool Delay(std::uint32_t milliseconds);
  // Whether the server is to be stopped, or was stopped (and perhaps started again) by somebody else since
  // Delay was called.
  bool CalledOff() const;

 private:
  Lifecycle* owner;  // null once moved from
  std::uint64_t stopsSeen = 0;
};
