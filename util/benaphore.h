#pragma once

// A benaphore: a lock word in memory with an event to wait on. Taking and releasing a free lock costs one
// atomic operation each; the event is used only while threads wait.
//
// It behaves like an automatic-reset event that is signalled while the lock is free: it has no owner, any
// thread may release it, and releasing a free one leaves it free. It is fair: a lock that threads wait for is
// never freed but passed to one of them by the event.
//
// Values of the word:
//   0                        free
//   kHeld + n * kWaiter      held, n threads wait on the event
//   kPassing + n * kWaiter   released: the event is signalled, or about to be, for one thread that waited; n
//                            does not count that thread
//   kOrphaned                the same, but the wait of that thread has failed: the next one that arrives
//                            waits in its place
//
// Signalling the event is the last thing a release does with the lock, so the thread that gets the lock may
// destroy it.

#include <atomic>
#include <cstdint>

namespace TamLogUtil {

// The event is the caller's. It starts unsignalled and has
//   bool Wait(std::uint32_t milliseconds)  true when it was signalled, which resets it; false when the time
//                                          ran out (0xFFFFFFFF: never); may throw
//   void Signal()                          lets one thread through; if it throws, it let none through
class Benaphore {
 public:
  // False when `milliseconds` passed first. If the event throws, the lock was not taken.
  template <class WaitEvent>
  bool Wait(WaitEvent&& event, std::uint32_t milliseconds) {
    switch (Arrive(milliseconds != 0)) {
      case Arrival::Inside:
        return true;
      case Arrival::Refused:
        return false;
      case Arrival::Waits:
        break;
    }
    try {
      if (!event.Wait(milliseconds)) {
        if (CountOut()) return false;
        // Too late to leave: the event is being signalled for this thread.
        event.Wait(kForever);
      }
    } catch (...) {
      Abandon();
      throw;
    }
    word.fetch_sub(kPassing - kHeld, std::memory_order_acquire);
    return true;
  }

  // If the event throws, the lock is still held.
  template <class WaitEvent>
  void Release(WaitEvent&& event) {
    if (!HandOver()) return;
    try {
      event.Signal();
    } catch (...) {
      TakeBack();
      throw;
    }
  }

 private:
  static constexpr std::uint32_t kForever = 0xFFFFFFFFU;
  static constexpr std::uint32_t kHeld = 1;
  static constexpr std::uint32_t kPassing = 2;
  static constexpr std::uint32_t kOrphaned = 3;
  static constexpr std::uint32_t kState = 3;  // mask of the above
  static constexpr std::uint32_t kWaiter = 4;

  enum class Arrival : std::uint8_t { Inside, Waits, Refused };

  // Applies next(word) to the word; returns its old value. Nothing is changed when both are equal.
  template <class Next>
  std::uint32_t Change(std::memory_order order, Next&& next) {
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    while (next(seen) != seen &&
           !word.compare_exchange_weak(seen, next(seen), order, std::memory_order_relaxed)) {
    }
    return seen;
  }

  Arrival Arrive(bool mayWait) {
    const std::uint32_t seen = Change(std::memory_order_acquire, [mayWait](std::uint32_t now) {
      if (now == 0) return kHeld;
      if (now == kOrphaned) return kPassing;
      return mayWait ? now + kWaiter : now;
    });
    if (seen == 0) return Arrival::Inside;
    return seen == kOrphaned || mayWait ? Arrival::Waits : Arrival::Refused;
  }

  // Returns false when no thread is counted: the event is being signalled for the one thread that still
  // waits.
  bool CountOut() {
    return Change(std::memory_order_relaxed,
                  [](std::uint32_t now) { return now >= kWaiter ? now - kWaiter : now; }) >= kWaiter;
  }

  // After a failed wait: while other threads wait, one of them gets the signal that may be meant for this
  // one.
  void Abandon() {
    Change(std::memory_order_relaxed,
           [](std::uint32_t now) { return now >= kWaiter ? now - kWaiter : kOrphaned; });
  }

  // Returns true when the event has to be signalled.
  bool HandOver() {
    const std::uint32_t seen = Change(std::memory_order_release, [](std::uint32_t now) {
      if ((now & kState) != kHeld) return now;
      return now < kWaiter ? 0 : now - kWaiter - kHeld + kPassing;
    });
    return (seen & kState) == kHeld && seen >= kWaiter;
  }

  // After an event that could not be signalled: the lock is held as before.
  void TakeBack() {
    Change(std::memory_order_relaxed,
           [](std::uint32_t now) { return now == kOrphaned ? kHeld : now + kWaiter + kHeld - kPassing; });
  }

  std::atomic<std::uint32_t> word{0};
};

}  // namespace TamLogUtil
