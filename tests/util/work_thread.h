#pragma once

// Threads for the tests of Thread: Run calls a function of the test, and the exit code can be read after the
// object has closed its handle.

#include <atomic>
#include <cstdint>
#include <functional>
#include <utility>

#include "util/sync.h"
#include "util/thread.h"
#include "util/win32.h"

namespace TamLogUtil::Threading {

// The exit code of a thread, readable after its object is gone.
class ExitCode {
 public:
  // To be called on the thread itself.
  void Watch() { thread.Copy(GetCurrentThread()); }
  // Waits for the thread's end. Returns 0xDEAD when it does not end or was never watched.
  std::uint32_t Await() const {
    DWORD code = 0;
    if (WaitForSingleObject(thread.Get(), 20000) != WAIT_OBJECT_0) return 0xDEAD;
    return GetExitCodeThread(thread.Get(), &code) == 0 ? 0xDEAD : code;
  }

 private:
  AutoHandle thread;
};

// Lets one thread wait for another.
class Signal {
 public:
  Signal() { event.RemoveSignal(); }
  void Set() { event.SetSignal(); }
  bool Await() const { return event.Wait(20000); }

 private:
  Event event{nullptr, nullptr};
};

// Leaves a running thread to the base class's destructor.
class PlainThread : public Thread {
 public:
  using Work = std::function<std::uint32_t(PlainThread&)>;
  explicit PlainThread(Work threadWork) : Thread("Test"), work(std::move(threadWork)) {}
  ~PlainThread() override {
    if (destroyed != nullptr) ++*destroyed;
  }

  std::uint32_t Run() override { return work(*this); }
  void CountDestruction(std::atomic<int>& counter) { destroyed = &counter; }

  using Thread::ThreadStart;

 private:
  Work work;
  std::atomic<int>* destroyed = nullptr;
};

// Stops and joins, as every thread of the server does.
class WorkThread : public PlainThread {
 public:
  using PlainThread::PlainThread;
  ~WorkThread() override {
    Stop();
    Join(Timeout::Infinite);
  }
};

// Work that runs until a stop is requested.
inline std::uint32_t UntilStopped(PlainThread& thread) {
  while (!thread.IsStopRequested()) Sleep(1);
  return 0;
}

}  // namespace TamLogUtil::Threading
