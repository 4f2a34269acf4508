// A benaphore over an event that counts its calls and can fail, on one thread and between threads.

#include "util/benaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
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
class FakeEvent {
 public:
  bool Wait(std::uint32_t milliseconds) {
    ++waits;
    std::unique_lock<std::mutex> guard(mutex);
    if (fails) throw std::runtime_error("wait");
    const auto isSignalled = [this] { return signalled; };
    if (milliseconds == kForever) {
      changed.wait(guard, isSignalled);
    } else if (!changed.wait_for(guard, std::chrono::milliseconds(milliseconds), isSignalled)) {
      return false;
    }
    signalled = false;
    return true;
  }
  void Signal() {
    // Notified under the lock: the thread that comes through may destroy the event.
    const std::lock_guard<std::mutex> guard(mutex);
    if (fails) throw std::runtime_error("signal");
    ++signals;
    signalled = true;
    changed.notify_one();
  }
  void Fail(bool now) {
    const std::lock_guard<std::mutex> guard(mutex);
    fails = now;
  }

  std::atomic<int> waits{0};
  std::atomic<int> signals{0};

 private:
  std::mutex mutex;
  std::condition_variable changed;
  bool signalled = false;
  bool fails = false;
};

void AwaitWaits(const FakeEvent& event, int count) {
  while (event.waits < count) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

// Four threads take and release the lock, with short, unlimited and no time-outs; never two are inside. Each
// waits by the event that eventOf(its random numbers) returns; a failed wait takes nothing.
template <class EventOf>
void ContendFor(Benaphore& lock, EventOf&& eventOf) {
  int count = 0;  // guarded by the lock: a sanitizer reports two threads inside
  std::atomic<int> taken{0};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (unsigned seed = 1; seed <= 4; ++seed) {
    threads.emplace_back([&, seed] {
      std::minstd_rand random(seed);
      auto&& event = eventOf(random);
      for (int round = 0; round < 20000; ++round) {
        const auto pick = random() % 8;
        try {
          if (!lock.Wait(event, pick < 5 ? kForever : (pick < 7 ? 0 : 1))) continue;
        } catch (const std::runtime_error&) {
          continue;
        }
        ++count;
        ++taken;
        if (random() % 64 == 0) std::this_thread::yield();
        lock.Release(event);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, taken);
}

TEST(Benaphore, AFreeOneIsTakenAndReleasedWithoutItsEvent) {
  Benaphore lock;
  FakeEvent event;
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(lock.Wait(event, 0));
    EXPECT_FALSE(lock.Wait(event, 0)) << "held";
    lock.Release(event);
  }
  EXPECT_EQ(event.waits, 0);
  EXPECT_EQ(event.signals, 0);
}

TEST(Benaphore, ReleasingAFreeOneLeavesItFreeForOne) {
  Benaphore lock;
  FakeEvent event;
  lock.Release(event);
  lock.Release(event);
  EXPECT_TRUE(lock.Wait(event, 0));
  EXPECT_FALSE(lock.Wait(event, 0));
  EXPECT_EQ(event.signals, 0);
}

TEST(Benaphore, AWaitThatRunsOutLeavesTheLockWithItsHolder) {
  Benaphore lock;
  FakeEvent event;
  lock.Wait(event, 0);
  EXPECT_FALSE(lock.Wait(event, 10));
  EXPECT_EQ(event.waits, 1);
  EXPECT_FALSE(lock.Wait(event, 0));
  lock.Release(event);
  EXPECT_EQ(event.signals, 0) << "no thread waits any more";
  EXPECT_TRUE(lock.Wait(event, 0));
}

TEST(Benaphore, AReleaseLetsOneWaitingThreadIn) {
  Benaphore lock;
  FakeEvent event;
  lock.Wait(event, 0);
  std::atomic<int> inside{0};
  std::vector<std::thread> threads;
  threads.reserve(2);
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      lock.Wait(event, kForever);
      ++inside;
    });
  }
  AwaitWaits(event, 2);
  lock.Release(event);
  while (inside < 1) std::this_thread::yield();
  EXPECT_FALSE(lock.Wait(event, 0)) << "passed on, not freed";
  lock.Release(event);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(event.signals, 2);
  lock.Release(event);
  EXPECT_TRUE(lock.Wait(event, 0));
}

TEST(Benaphore, AFailedWaitTakesNothingAndAFailedReleaseReleasesNothing) {
  Benaphore lock;
  FakeEvent event;
  lock.Wait(event, 0);
  event.Fail(true);
  EXPECT_THROW(lock.Wait(event, 10), std::runtime_error);
  event.Fail(false);
  std::thread waiting([&] { EXPECT_TRUE(lock.Wait(event, kForever)); });
  AwaitWaits(event, 2);
  event.Fail(true);
  EXPECT_THROW(lock.Release(event), std::runtime_error);
  EXPECT_FALSE(lock.Wait(event, 0));
  event.Fail(false);
  lock.Release(event);
  waiting.join();
  lock.Release(event);
  EXPECT_TRUE(lock.Wait(event, 0));
}

// An event whose waits fail, after `meanwhile` has run; its signals reach the threads that wait on `others`.
struct FailingWait {
  FakeEvent& others;
  std::function<void()> meanwhile;

  bool Wait(std::uint32_t /*milliseconds*/) const {
    meanwhile();
    throw std::runtime_error("wait");
  }
  void Signal() const { others.Signal(); }
};

// Returns whether the lock is free without any trace of a thread that waits for it.
bool IsAsNew(Benaphore& lock, FakeEvent& event) {
  const int waits = event.waits;
  const int signals = event.signals;
  for (int round = 0; round < 2; ++round) {
    if (!lock.Wait(event, 0) || lock.Wait(event, 0)) return false;
    lock.Release(event);
  }
  return event.waits == waits && event.signals == signals;
}

TEST(Benaphore, AWaitThatFailsWhileItIsHandedTheLockLeavesItToTheNextThatArrives) {
  for (const std::uint32_t patience : {0U, 10U, kForever}) {
    Benaphore lock;
    FakeEvent event;
    lock.Wait(event, 0);
    EXPECT_THROW(lock.Wait(FailingWait{event, [&] { lock.Release(event); }}, 10), std::runtime_error);
    EXPECT_EQ(event.signals, 1);
    EXPECT_TRUE(lock.Wait(event, patience)) << patience;
    EXPECT_FALSE(lock.Wait(event, 0)) << patience;
    lock.Release(event);
    EXPECT_TRUE(IsAsNew(lock, event)) << patience;
  }
}

TEST(Benaphore, AWaitThatFailsWhileItIsHandedTheLockLeavesItToAThreadThatWaits) {
  Benaphore lock;
  FakeEvent event;
  lock.Wait(event, 0);
  std::thread waiting([&] {
    EXPECT_TRUE(lock.Wait(event, kForever));
    lock.Release(event);
  });
  AwaitWaits(event, 1);
  EXPECT_THROW(lock.Wait(FailingWait{event, [&] { lock.Release(event); }}, 10), std::runtime_error);
  waiting.join();
  // The thread may have passed the lock on before the wait failed.
  EXPECT_TRUE(lock.Wait(event, 0));
  lock.Release(event);
  EXPECT_TRUE(IsAsNew(lock, event));
}

// The wait fails between the two steps of the release.
TEST(Benaphore, AReleaseThatFailsAfterTheWaitForItHasFailedKeepsTheLock) {
  struct FailingSignal {
    std::function<void()> meanwhile;
    bool Wait(std::uint32_t /*milliseconds*/) const { return false; }
    void Signal() const {
      meanwhile();
      throw std::runtime_error("signal");
    }
  };
  Benaphore lock;
  FakeEvent event;
  std::atomic<bool> waits{false};
  std::atomic<bool> released{false};
  std::atomic<bool> failed{false};
  lock.Wait(event, 0);
  std::thread waiting([&] {
    const auto untilReleased = [&] {
      waits = true;
      while (!released) std::this_thread::yield();
    };
    EXPECT_THROW(lock.Wait(FailingWait{event, untilReleased}, 10), std::runtime_error);
    failed = true;
  });
  const auto holdUp = [&] {
    released = true;
    while (!failed) std::this_thread::yield();
  };
  while (!waits) std::this_thread::yield();
  EXPECT_THROW(lock.Release(FailingSignal{holdUp}), std::runtime_error);
  waiting.join();
  EXPECT_FALSE(lock.Wait(event, 0)) << "still held";
  lock.Release(event);
  EXPECT_TRUE(IsAsNew(lock, event));
}

TEST(Benaphore, FailedWaitsOfManyThreadsLeaveNoTrace) {
  // Fails some waits at once, and some although they were signalled.
  struct Unreliable {
    FakeEvent& event;
    std::minstd_rand& random;
    bool Wait(std::uint32_t milliseconds) const {
      if (random() % 4 == 0) {
        std::this_thread::yield();
        throw std::runtime_error("wait");
      }
      return event.Wait(milliseconds);
    }
    void Signal() const { event.Signal(); }
  };
  Benaphore lock;
  FakeEvent event;
  ContendFor(lock, [&event](std::minstd_rand& random) { return Unreliable{event, random}; });
  ASSERT_TRUE(lock.Wait(event, 0));  // takes a pass whose thread failed last
  lock.Release(event);
  EXPECT_TRUE(IsAsNew(lock, event));
}

TEST(Benaphore, TheThreadThatGetsItMayDestroyIt) {
  struct Both {
    Benaphore lock;
    FakeEvent event;
  };
  for (int round = 0; round < 300; ++round) {
    auto both = std::make_unique<Both>();
    both->lock.Wait(both->event, 0);
    std::thread heir([&] {
      both->lock.Wait(both->event, kForever);
      both.reset();
    });
    if (round % 3 == 0) std::this_thread::yield();
    both->lock.Release(both->event);
    heir.join();
  }
}

// None waits for a lock that is free.
TEST(Benaphore, KeepsManyThreadsApartWhateverTheirTimeOuts) {
  Benaphore lock;
  FakeEvent event;
  ContendFor(lock, [&event](std::minstd_rand& /*random*/) -> FakeEvent& { return event; });
  EXPECT_TRUE(lock.Wait(event, 0)) << "free in the end";
}

}  // namespace
}  // namespace TamLogUtil
