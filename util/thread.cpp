#include "util/thread.h"

#include <exception>

#include "util/diagnostic_log.h"
#include "util/exceptions.h"
#include "util/thread_calls.h"

namespace TamLogUtil::Threading {

using Exceptions::ExceptionBase;
using Exceptions::ExceptionWindows;

namespace {

constexpr std::uint32_t kFailedExitCode = 0xFFFFFFFFU;
constexpr std::uint32_t kDestroyedExitCode = 1;

}  // namespace

Thread::Thread(const std::string& /*name*/) {}

Thread::~Thread() {
  try {
    if (threadId != PresentThreadId()) Terminate(kDestroyedExitCode);
    // Not closed yet when the thread destroys its own object.
    CloseHeldHandle();
  } catch (...) {
    // The thread could not be terminated and would continue to use a destroyed object.
    std::terminate();
  }
}

void Thread::Start() {
  {
    Mutex::Access access(stateLock, Timeout::Infinite);
    stopRequested = false;
  }
  // Releasing the lock is the last access to this object: the new thread's clean-up waits for the lock and
  // may destroy the object before this call returns.
  Mutex::Access access(handleLock, Timeout::Infinite);
  threadId = 0;
  threadHandle = StartThread(&Thread::ThreadStart, this);
  if (threadHandle == nullptr) {
    throw ExceptionWindows("Failed to start Thread object, invalid handle returned by CreateThread()");
  }
}

void Thread::Stop() {
  Mutex::Access access(stateLock, Timeout::Infinite);
  stopRequested = true;
}

bool Thread::IsStopRequested() {
  Mutex::Access access(stateLock, Timeout::Infinite);
  return stopRequested;
}

bool Thread::Join(Timeout& timeout) {
  AutoHandle waited;
  {
    Mutex::Access access(handleLock, timeout);
    const NativeHandle held = threadHandle;
    if (held == nullptr) return true;
    waited.Copy(held);
    // After a time-out this runs without the lock, while the thread may clean up. It clears the member before
    // it closes the handle, so an unchanged member proves that the duplicate is one of the thread.
    if (threadHandle != held) return true;
    // The system takes the empty owner's value for the process itself: a wait for it would never end.
    if (waited.IsInvalid()) throw ExceptionWindows("Failed to wait for Thread object in Join()");
  }
  const ThreadWait result = WaitForEnd(waited.Get(), timeout.Remaining());
  if (result == ThreadWait::Failed) throw ExceptionWindows("Failed to wait for Thread object in Join()");
  return result == ThreadWait::Ended;
}

void Thread::Pause() {
  Mutex::Access access(handleLock, Timeout::Infinite);
  if (!PauseThread(threadHandle)) {
    throw ExceptionWindows("Failed to pause Thread object, SuspendThread() failed");
  }
}

void Thread::Resume() {
  Mutex::Access access(handleLock, Timeout::Infinite);
  if (!ResumeThread(threadHandle)) {
    throw ExceptionWindows("Failed to resume paused Thread object, ResumeThread() failed");
  }
}

void Thread::SetDeleteOnExit() {
  Mutex::Access access(handleLock, Timeout::Infinite);
  deleteOnExit = true;
}

void Thread::Terminate(std::uint32_t exitCode) {
  Mutex::Access access(handleLock, Timeout::Infinite);
  const NativeHandle held = threadHandle.exchange(nullptr);
  if (held == nullptr) return;
  const bool ended = EndThread(held, exitCode);
  const std::uint32_t error = LastError();
  CloseQuietly(held);
  if (!ended) {
    throw ExceptionWindows("Failed to terminate thread, TerminateThread() did not succeed", nullptr, error);
  }
}

void Thread::CloseHeldHandle() {
  Mutex::Access access(handleLock, Timeout::Infinite);
  const NativeHandle held = threadHandle.exchange(nullptr);
  if (held != nullptr) CloseQuietly(held);
}

unsigned long Thread::ThreadStart(void* argument) {
  try {
    return RunAndCleanUp(static_cast<Thread*>(argument));
  } catch (const ExceptionBase& failure) {
    WriteLog("Thread terminated due to unhandled exception : " + failure.Compose("\n"));
  } catch (...) {
    // Silent and without clean-up: any other exception is a fault that passed the guard of a mapped view, and
    // a log entry would say no more than the exit code. The handle stays, so Join still works; an object that
    // deletes itself is leaked rather than destroyed in an unknown state.
  }
  return kFailedExitCode;
}

std::uint32_t Thread::RunAndCleanUp(Thread* thread) {
  if (thread == nullptr) throw ExceptionBase("Thread started with null pointer in ThreadStart(this)");
  thread->threadId = PresentThreadId();
  std::uint32_t result = 0;
  try {
    result = thread->Run();
  } catch (const ExceptionBase& cause) {
    CleanUp(thread);
    throw ExceptionBase("Exception occured during thread Run()", &cause);
  }
  CleanUp(thread);
  return result;
}

// Retries once when the wait for the lock fails: otherwise the handle would stay open, and an object that
// deletes itself would leak.
void Thread::CleanUp(Thread* thread) {
  bool destroy = false;
  try {
    destroy = thread->ReleaseHandle();
  } catch (const ExceptionBase&) {
    destroy = thread->ReleaseHandle();
  }
  if (destroy) delete thread;
}

// Returns whether this thread has to destroy the object. If not, another thread may destroy it as soon as
// handleLock is released.
bool Thread::ReleaseHandle() {
  Mutex::Access access(handleLock, Timeout::Infinite);
  const NativeHandle held = threadHandle.exchange(nullptr);
  if (held != nullptr) CloseQuietly(held);
  return deleteOnExit;
}

}  // namespace TamLogUtil::Threading
