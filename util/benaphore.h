#pragma once

// A binary lock in one word, with a gate (an automatic-reset event) for those who have to wait. A free lock
// costs one atomic operation to take and one to give back; the gate is touched only when threads wait.
//
// It behaves like an automatic-reset event that is signalled while the lock is free: it belongs to no thread,
// any thread may give it back, and giving back a free one leaves it free. Nobody overtakes: a lock that
// somebody waits for is not freed but handed through the gate.
//
// What the word says:
//   0                        free
//   kHeld + n * kWaiter      somebody is inside, n threads wait at the gate
//   kPassing + n * kWaiter   given back: the gate is open, or about to be, for one thread that waited and is
//                            no longer counted in n
//
// Opening the gate is the last thing a release does with the lock, so whoever comes through may destroy it.

#include <atomic>
#include <cstdint>

namespace TamLogUtil {

// A gate starts closed and has
//   bool Wait(std::uint32_t milliseconds)  true when it was open, which closes it; false when the time ran
//                                          out (0xFFFFFFFF: never); may throw
//   void Open()                            lets one thread through; one that throws has let nobody through
class Benaphore {
 public:
  // Whether the lock came in time. When the gate throws, the lock was not taken.
  template <class Gate>
  bool Wait(Gate&& gate, std::uint32_t milliseconds) {
    switch (Arrive(milliseconds != 0)) {
      case Arrival::Inside:
        return true;
      case Arrival::Refused:
        return false;
      case Arrival::Waits:
        break;
    }
    if (!WaitAtGate(gate, milliseconds)) {
      if (CountOut()) return false;
      // Too late to leave: the gate is opened for this thread.
      gate.Wait(kForever);
    }
    word.fetch_sub(kPassing - kHeld, std::memory_order_acquire);
    return true;
  }

  template <class Gate>
  void Release(Gate&& gate) {
    if (!HandOver()) return;
    try {
      gate.Open();
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

  template <class Gate>
  bool WaitAtGate(Gate&& gate, std::uint32_t milliseconds) {
    try {
      return gate.Wait(milliseconds);
    } catch (...) {
      // If it is opened for this thread all the same, the next one that arrives goes through instead.
      CountOut();
      throw;
    }
  }

  // False when nobody is counted: the one thread that is still at the gate has been let through.
  bool CountOut() {
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    while (seen >= kWaiter) {
      if (word.compare_exchange_weak(seen, seen - kWaiter, std::memory_order_relaxed)) return true;
    }
    return false;
  }

  // True when the gate has to be opened.
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
