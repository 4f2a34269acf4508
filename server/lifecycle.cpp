#include "server/lifecycle.h"

#include <utility>

#include "util/exceptions.h"

using TamLogUtil::LeafLock;
using TamLogUtil::Exceptions::ExceptionBase;

Lifecycle::Lifecycle() : stopSignal(nullptr, nullptr), noRestartsLeft(nullptr, nullptr) {
  stopSignal.RemoveSignal();
}

void Lifecycle::WantStopped() {
  const LeafLock::Guard guard(lock);
  stopWanted = true;
  ++stops;
  stopSignal.SetSignal();
}

void Lifecycle::WantRunning() {
  const LeafLock::Guard guard(lock);
  stopWanted = false;
  stopSignal.RemoveSignal();
}

bool Lifecycle::WaitForRestarts(std::uint32_t milliseconds) {
  const bool allGone = noRestartsLeft.Wait(milliseconds);
  // The thread that returned the last ticket set the signal under the lock. When this thread gets the lock,
  // that one no longer uses this object.
  const LeafLock::Guard guard(lock);
  return allGone;
}

void Lifecycle::TakeTicket() {
  const LeafLock::Guard guard(lock);
  noRestartsLeft.RemoveSignal();
  ++tickets;
}

// Called by a destructor, so it must not throw. Retries once; if the signal cannot be set, a thread in
// WaitForRestarts waits until its time runs out.
void Lifecycle::ReturnTicket() {
  const LeafLock::Guard guard(lock);
  if (--tickets != 0) return;
  try {
    noRestartsLeft.SetSignal();
  } catch (const ExceptionBase&) {
    try {
      noRestartsLeft.SetSignal();
    } catch (const ExceptionBase&) {
      return;
    }
  }
}

// The analysis cannot follow a lock that is taken only if the wait succeeds.
Lifecycle::Turn::Turn(Lifecycle& lifecycle, std::uint32_t milliseconds) NO_THREAD_SAFETY_ANALYSIS
    : owner(lifecycle),
      taken(lifecycle.sequenceTurn.TryWait(milliseconds)) {}

Lifecycle::Turn::~Turn() NO_THREAD_SAFETY_ANALYSIS {
  if (taken) owner.sequenceTurn.Release();
}

Lifecycle::RestartTicket::RestartTicket(Lifecycle& lifecycle) : owner(&lifecycle) {
  owner->TakeTicket();
}

Lifecycle::RestartTicket::RestartTicket(RestartTicket&& other) noexcept
    : owner(std::exchange(other.owner, nullptr)), stopsSeen(other.stopsSeen) {}

Lifecycle::RestartTicket::~RestartTicket() {
  if (owner != nullptr) owner->ReturnTicket();
}

bool Lifecycle::RestartTicket::Delay(std::uint32_t milliseconds) {
  {
    const LeafLock::Guard guard(owner->lock);
    stopsSeen = owner->stops;
  }
  return !owner->stopSignal.Wait(milliseconds) && !IsCancelled();
}

bool Lifecycle::RestartTicket::IsCancelled() const {
  const LeafLock::Guard guard(owner->lock);
  return owner->stopWanted || owner->stops != stopsSeen;
}
