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
  // Whoever gave the last ticket back raised the signal under the lock; once it can be taken here, that
  // thread is done with this object.
  const LeafLock::Guard guard(lock);
  return allGone;
}

void Lifecycle::TakeTicket() {
  const LeafLock::Guard guard(lock);
  noRestartsLeft.RemoveSignal();
  ++tickets;
}

// From a destructor, so nothing may leave it. Tried twice, like the gate of a lock; if the signal cannot be
// raised at all, whoever waits for the restarts waits until the time is over, and goes on.
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

// The analysis cannot follow a lock that is taken only if it comes in time.
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
  return !owner->stopSignal.Wait(milliseconds) && !CalledOff();
}

bool Lifecycle::RestartTicket::CalledOff() const {
  const LeafLock::Guard guard(owner->lock);
  return owner->stopWanted || owner->stops != stopsSeen;
}
