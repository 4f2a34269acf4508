// The lock's word against a gate that counts and can fail, alone and between threads.

#include "util/benaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace TamLogUtil {
namespace {

constexpr std::uint32_t kForever = 0xFFFFFFFFU;

// An automatic-reset event.
class Gate {
 public:
  bool Wait(std::uint32_t milliseconds) {
    ++waits;
    std::unique_lock<std::mutex> guard(mutex);
    if (fails) throw std::runtime_error("wait");
    const auto isOpen = [this] { return open; };
    if (milliseconds == kForever) {
      changed.wait(guard, isOpen);
    } else if (!changed.wait_for(guard, std::chrono::milliseconds(milliseconds), isOpen)) {
      return false;
    }
    open = false;
    return true;
  }
  void Open() {
    // Notified inside: whoever comes through may destroy the gate.
    const std::lock_guard<std::mutex> guard(mutex);
    if (fails) throw std::runtime_error("open");
    ++opened;
    open = true;
    changed.notify_one();
  }
  void Fail(bool now) {
    const std::lock_guard<std::mutex> guard(mutex);
    fails = now;
  }

  std::atomic<int> waits{0};
  std::atomic<int> opened{0};

 private:
  std::mutex mutex;
  std::condition_variable changed;
  bool open = false;
  bool fails = false;
};

void AwaitWaits(const Gate& gate, int count) {
  while (gate.waits < count) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

TEST(Benaphore, AFreeOneIsTakenAndGivenBackWithoutItsGate) {
  Benaphore lock;
  Gate gate;
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(lock.Wait(gate, 0));
    EXPECT_FALSE(lock.Wait(gate, 0)) << "held";
    lock.Release(gate);
  }
  EXPECT_EQ(gate.waits, 0);
  EXPECT_EQ(gate.opened, 0);
}

TEST(Benaphore, GivingBackAFreeOneLeavesItFreeForOne) {
  Benaphore lock;
  Gate gate;
  lock.Release(gate);
  lock.Release(gate);
  EXPECT_TRUE(lock.Wait(gate, 0));
  EXPECT_FALSE(lock.Wait(gate, 0));
  EXPECT_EQ(gate.opened, 0);
}

TEST(Benaphore, AWaitThatRunsOutLeavesTheLockWithItsHolder) {
  Benaphore lock;
  Gate gate;
  lock.Wait(gate, 0);
  EXPECT_FALSE(lock.Wait(gate, 10));
  EXPECT_EQ(gate.waits, 1);
  EXPECT_FALSE(lock.Wait(gate, 0));
  lock.Release(gate);
  EXPECT_EQ(gate.opened, 0) << "nobody waits any more";
  EXPECT_TRUE(lock.Wait(gate, 0));
}

TEST(Benaphore, WhoeverGivesItBackLetsOneWaitingThreadIn) {
  Benaphore lock;
  Gate gate;
  lock.Wait(gate, 0);
  std::atomic<int> inside{0};
  std::vector<std::thread> threads;
  threads.reserve(2);
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      lock.Wait(gate, kForever);
      ++inside;
    });
  }
  AwaitWaits(gate, 2);
  lock.Release(gate);
  while (inside < 1) std::this_thread::yield();
  EXPECT_FALSE(lock.Wait(gate, 0)) << "handed over, not freed";
  lock.Release(gate);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(gate.opened, 2);
  lock.Release(gate);
  EXPECT_TRUE(lock.Wait(gate, 0));
}

TEST(Benaphore, AFailedWaitTakesNothingAndAFailedReleaseGivesNothingBack) {
  Benaphore lock;
  Gate gate;
  lock.Wait(gate, 0);
  gate.Fail(true);
  EXPECT_THROW(lock.Wait(gate, 10), std::runtime_error);
  gate.Fail(false);
  std::thread waiting([&] { EXPECT_TRUE(lock.Wait(gate, kForever)); });
  AwaitWaits(gate, 2);
  gate.Fail(true);
  EXPECT_THROW(lock.Release(gate), std::runtime_error);
  EXPECT_FALSE(lock.Wait(gate, 0));
  gate.Fail(false);
  lock.Release(gate);
  waiting.join();
  lock.Release(gate);
  EXPECT_TRUE(lock.Wait(gate, 0));
}

TEST(Benaphore, WhoeverGetsItMayDestroyIt) {
  struct Both {
    Benaphore lock;
    Gate gate;
  };
  for (int round = 0; round < 300; ++round) {
    auto both = std::make_unique<Both>();
    both->lock.Wait(both->gate, 0);
    std::thread heir([&] {
      both->lock.Wait(both->gate, kForever);
      both.reset();
    });
    if (round % 3 == 0) std::this_thread::yield();
    both->lock.Release(both->gate);
    heir.join();
  }
}

// Short, long and no patience at once: never two inside, and nobody stays outside a lock that is free.
TEST(Benaphore, KeepsManyThreadsApartWhateverTheirTimeOuts) {
  Benaphore lock;
  Gate gate;
  int count = 0;  // guarded by the lock: a sanitizer sees it when two are inside
  std::atomic<int> taken{0};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (unsigned seed = 1; seed <= 4; ++seed) {
    threads.emplace_back([&, seed] {
      std::minstd_rand random(seed);
      for (int round = 0; round < 20000; ++round) {
        const auto pick = random() % 8;
        const std::uint32_t patience = pick < 5 ? kForever : (pick < 7 ? 0 : 1);
        if (!lock.Wait(gate, patience)) continue;
        ++count;
        ++taken;
        if (random() % 64 == 0) std::this_thread::yield();
        lock.Release(gate);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, taken);
  EXPECT_TRUE(lock.Wait(gate, 0)) << "free in the end";
}

}  // namespace
}  // namespace TamLogUtil
