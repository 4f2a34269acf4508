#pragma once

// Base class of every worker thread. A subclass implements Run; the base owns the system's thread and offers
// a cooperative stop request that Run polls, a join with a time-out, forced termination on destruction, and
// deletion on exit for threads that are never joined.
//
// handleLock guards threadHandle and deleteOnExit; stateLock guards stopRequested. The two are never held
// together. threadHandle is also atomic: Join may get past handleLock by its time-out, and the handle must be
// closed exactly once.
//
// An exception that leaves Run never leaves the thread: one of the ExceptionBase family is written to the
// diagnostic log ("Thread terminated due to unhandled exception : ..."), any other is dropped silently and
// leaves handle and object as they are. The exit code is 0xFFFFFFFF in both cases.

#include <atomic>
#include <cstdint>
#include <string>

#include "util/native_handle.h"
#include "util/sync.h"
#include "util/thread_annotations.h"
#include "util/timeout.h"

namespace TamLogUtil::Threading {

class Thread {
 public:
  // The name documents the subclass; threads have no name at run time.
  explicit Thread(const std::string& name);

  // Terminates a thread that is still running, with exit code 1; subclasses stop and join in their own
  // destructors. Ends the process if the thread cannot be terminated.
  virtual ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  // Starts Run on a new thread. To be called once, or again after the thread has ended. The new thread of a
  // delete-on-exit object may destroy the object before this returns. ExceptionWindows "Failed to start
  // Thread object, invalid handle returned by CreateThread()".
  virtual void Start();
  // Requests the end of Run and returns at once. Any thread.
  virtual void Stop();
  // Returns true when the thread has ended or was never started, false when the time ran out. Any thread.
  // Waits on its own handle, so the thread may close the shared one meanwhile. ExceptionWindows "Failed to
  // wait for Thread object in Join()".
  virtual bool Join(Timeout& timeout);
  // Suspends the thread wherever it is, even while it holds a lock: Stop and IsStopRequested of this object
  // may block until Resume. ExceptionWindows "Failed to pause Thread object, SuspendThread() failed".
  virtual void Pause();
  // Lets a paused thread continue. ExceptionWindows "Failed to resume paused Thread object, ResumeThread()
  // failed".
  virtual void Resume();
  // Does the thread's work and returns its exit code. Must poll IsStopRequested.
  virtual std::uint32_t Run() = 0;

  // Returns true before the first Start and after Stop. Any thread.
  bool IsStopRequested();
  // Makes the thread delete this object after Run has returned; the object must be on the heap.
  void SetDeleteOnExit();
  // Terminates the thread at once. ExceptionWindows "Failed to terminate thread, TerminateThread() did not
  // succeed".
  void Terminate(std::uint32_t exitCode);

 protected:
  // The new thread's entry; `argument` is the Thread.
  static unsigned long __attribute__((ms_abi)) ThreadStart(void* argument);

 private:
  static std::uint32_t RunAndCleanUp(Thread* thread);
  static void CleanUp(Thread* thread);
  bool ReleaseHandle();
  void CloseHeldHandle();

  Mutex handleLock;
  bool deleteOnExit GUARDED_BY(handleLock) = false;
  std::atomic<NativeHandle> threadHandle GUARDED_BY(handleLock) = nullptr;
  Mutex stateLock;
  bool stopRequested GUARDED_BY(stateLock) = true;
  std::atomic<std::uint32_t> threadId{0};
};

}  // namespace TamLogUtil::Threading
