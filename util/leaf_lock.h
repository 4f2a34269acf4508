#pragma once

// A private lock of one class, held only while that class touches its own data: a thread that holds it waits
// for nothing and takes no other lock. Unlike Mutex (util/sync.h) it has an owning thread and no time-out,
// and taking a free one makes no system call.
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
