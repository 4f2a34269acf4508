#pragma once

// A private lock inside one class, held only while that class touches its own data: nobody waits for anything
// else and takes no other lock while holding it. Unlike Mutex (util/sync.h) it belongs to the thread that
// took it and has no time-out, and a free one costs no call into the system.
//
//   LeafLock lock;
//   int count GUARDED_BY(lock) = 0;
//   ...
//   LeafLock::Guard guard(lock);
//   ++count;

#include <mutex>

#include "util/thread_annotations.h"

namespace TamLogUtil {

class CAPABILITY("mutex") LeafLock {
 public:
  class SCOPED_CAPABILITY Guard {
   public:
    explicit Guard(LeafLock& heldLock) ACQUIRE(heldLock) : lock(heldLock) { lock.Lock(); }
    ~Guard() RELEASE() { lock.Unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    LeafLock& lock;
  };

  LeafLock() = default;
  LeafLock(const LeafLock&) = delete;
  LeafLock& operator=(const LeafLock&) = delete;

  void Lock() ACQUIRE() { mutex.lock(); }
  void Unlock() RELEASE() { mutex.unlock(); }

 private:
  std::mutex mutex;
};

}  // namespace TamLogUtil
