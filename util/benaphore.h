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
//
// Signalling the event is the last thing a release does with the lock, so the thread that gets the lock may
// destroy it.

#include <atomic>
#include <cstdint>

namespace TamLogUtil {

// The event is the caller's. It starts unsignalled and has
//   bool Wait(std::uint32_t milliseconds)  true when it was signalled, which resets it; false when the time
//   ran
//                                          out (0xFFFFFFFF: never); may throw
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
    if (!WaitOn(event, milliseconds)) {
      if (CountOut()) return false;
      // Too late to leave: the event is being signalled for this thread.
      event.Wait(kForever);
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
      word.fetch_add(kWaiter + kHeld - kPassing, std::memory_order_relaxed);
      throw;
    }
  }

 private:
  static constexpr std::uint32_t kForever = 0xFFFFFFFFU;
  static constexpr std::uint32_t kHeld = 1;
  static constexpr std::uint32_t kPassing = 2;
  static constexpr std::uint32_t kWaiter = 4;

  enum class Arrival : std::uint8_t { Inside, Waits, Refused };

  Arrival Arrive(bool mayWait) {
    std::uint32_t seen = 0;
    while (true) {
      if (seen != 0 && !mayWait) return Arrival::Refused;
      const std::uint32_t next = seen == 0 ? kHeld : seen + kWaiter;
      if (word.compare_exchange_weak(seen, next, std::memory_order_acquire, std::memory_order_relaxed)) {
        return next == kHeld ? Arrival::Inside : Arrival::Waits;
      }
    }
  }

  template <class WaitEvent>
  bool WaitOn(WaitEvent& event, std::uint32_t milliseconds) {
    try {
      return event.Wait(milliseconds);
    } catch (...) {
      // If the event is still signalled for this thread, the next one that arrives goes through instead.
      CountOut();
      throw;
    }
  }

  // Returns false when no thread is counted: the event is being signalled for the one thread that still
  // waits.
  bool CountOut() {
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    while (seen >= kWaiter) {
      if (word.compare_exchange_weak(seen, seen - kWaiter, std::memory_order_relaxed)) return true;
    }
    return false;
  }

  // Returns true when the event has to be signalled.
  bool HandOver() {
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    while ((seen & kHeld) != 0) {
      const std::uint32_t next = seen < kWaiter ? 0 : seen - kWaiter - kHeld + kPassing;
      if (word.compare_exchange_weak(seen, next, std::memory_order_release, std::memory_order_relaxed)) {
        return next != 0;
      }
    }
    return false;
  }

  std::atomic<std::uint32_t> word{0};
};

}  // namespace TamLogUtil
