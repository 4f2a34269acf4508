#pragma once

// Serializes the starts and stops of the service object. They come from the service manager's threads, and
// from a restart thread that stops and starts the server a second after its settings changed. It prevents two
// sequences at once, a restart that starts the server again after the manager has stopped it, and the
// deletion of the service object while a restart thread uses it:
//
//  - a start or stop sequence runs inside a Turn;
//  - WantStopped records the manager's wish before its turn comes, so that a restart gives way;
//  - a restart thread holds a RestartTicket as long as it may touch the service object.
//
// `lock` guards the three fields that follow it; no other lock is taken under it. A turn is the outermost of
// all locks. Any thread.

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

  // Records that the server is to be stopped: restarts in progress end at their next step, sleeping ones at
  // once.
  void WantStopped();
  // Records that the server is to run: restarts requested from now on are carried out.
  void WantRunning();
  // Waits until no RestartTicket exists. Returns false when the time ran out.
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
  // Waits at most `milliseconds` for the sequence in progress and then continues without the turn: a restart
  // that waits for a dead reader must not keep the manager from stopping the service.
  Turn(Lifecycle& lifecycle, std::uint32_t milliseconds);
  ~Turn();
  bool Taken() const { return taken; }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  Lifecycle& owner;
  bool taken;
};

// Marks a restart thread as alive. Moved from the thread object into Run, so that it is returned on every way
// out of Run, before the thread object deletes itself. Used by one thread at a time.
class Lifecycle::RestartTicket {
 public:
  // `lifecycle` must outlive this.
  explicit RestartTicket(Lifecycle& lifecycle);
  RestartTicket(RestartTicket&& other) noexcept;
  ~RestartTicket();
  RestartTicket(const RestartTicket&) = delete;
  RestartTicket& operator=(const RestartTicket&) = delete;
  RestartTicket& operator=(RestartTicket&&) = delete;

  // Sleeps. Returns false, at once, when the server is to be stopped.
  bool Delay(std::uint32_t milliseconds);
  // Returns whether the server is to be stopped, or was stopped by another thread since Delay was called,
  // even if it was started again.
  bool IsCancelled() const;

 private:
  Lifecycle* owner;  // null once moved from
  std::uint64_t stopsSeen = 0;
};
