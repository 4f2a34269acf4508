#pragma once

// Base of every worker thread: a subclass supplies Run, the base owns the system's thread, a cooperative stop
// request that Run polls, join with a time-out, forced end on destruction, and delete-on-exit for threads
// that nobody joins.
//
// handleLock guards threadHandle and deleteOnExit; stateLock guards stopRequested. The two are never held
// together. threadHandle is atomic besides: Join may get past handleLock by its time-out, and the handle must
// be closed once whoever takes it.
//
// An exception that leaves Run never leaves the thread: one of the ExceptionBase family is written to the
// diagnostic log ("Thread terminated due to unhandled exception : ..."), any other passes in silence and
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
  // Threads carry no name at run time; the name documents the subclass.
  explicit Thread(const std::string& name);

  // Ends a thread that still runs with exit code 1: subclasses stop and join in their own destructors. A
  // thread that cannot be ended takes the process with it.
  virtual ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  // Starts Run on a new thread. Call once, or again after the thread has ended. The new thread of a
  // delete-on-exit object may destroy the object before this returns. ExceptionWindows "Failed to start
  // Thread object, invalid handle returned by CreateThread()".
  virtual void Start();
  // Asks Run to end and returns at once. Any thread.
  virtual void Stop();
  // True when the thread has ended or was never started; false when the time ran out. Any thread. Waits on a
  // handle of its own, so the thread may close the shared one meanwhile. ExceptionWindows "Failed to wait for
  // Thread object in Join()".
  virtual bool Join(Timeout& timeout);
  // Holds the thread wherever it is, also while it has a lock: between Pause and Resume Stop and
  // IsStopRequested of the same object may wait. ExceptionWindows "Failed to pause Thread object,
  // SuspendThread() failed".
  virtual void Pause();
  // ExceptionWindows "Failed to resume paused Thread object, ResumeThread() failed".
  virtual void Resume();
  // The thread's work; the result is its exit code. Has to look at IsStopRequested often enough.
  virtual std::uint32_t Run() = 0;

  // True before the first Start and after Stop. Any thread.
  bool IsStopRequested();
  // The thread deletes this object when Run has returned; the object has to be on the heap.
  void SetDeleteOnExit();
  // Ends the thread at once. ExceptionWindows "Failed to terminate thread, TerminateThread() did not
  // succeed".
  void Terminate(std::uint32_t exitCode);

 protected:
  // What the new thread runs; `argument` is the Thread.
  static unsigned long __attribute__((ms_abi)) ThreadStart(void* argument);

 private:
  static std::uint32_t RunAndCleanUp(Thread* thread);
  static void CleanUp(Thread* thread);
  bool LetGoOfHandle();
  void CloseHeldHandle();

  Mutex handleLock;
  bool deleteOnExit GUARDED_BY(handleLock) = false;
  std::atomic<NativeHandle> threadHandle GUARDED_BY(handleLock) = nullptr;
  Mutex stateLock;
  bool stopRequested GUARDED_BY(stateLock) = true;
  std::atomic<std::uint32_t> threadId{0};
};

}  // namespace TamLogUtil::Threading
