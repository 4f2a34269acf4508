#pragma once

// A thread that calls one callback again and again with a fixed pause between calls. Coarse on purpose: the
// pause is measured from the end of one call to the start of the next, so calls drift and never catch up;
// pauses above a second are slept in steps of a second.

#include <cstdint>
#include <string>

#include "util/sync.h"
#include "util/thread.h"
#include "util/thread_annotations.h"

namespace TamLogUtil {

class TimerCallback {
 public:
  virtual ~TimerCallback() noexcept(false) = default;
  // Called on the firing timer's own thread. An exception that leaves it ends the timer's thread.
  virtual void OnTimer(std::uint32_t timerId) = 0;
};

// periodLock, runningLock and callbackLock guard the member that follows them; runLock is held by Run
// whenever it is not waiting, so whoever takes it knows that no call is in progress. SetPeriod, SetCallback,
// Start and Stop come from any other thread; Stop may also come from within OnTimer.
class Timer : public Threading::Thread {
 public:
  Timer(std::uint32_t id, const std::string& name);
  // Lets a call in progress finish, then waits for the thread to end.
  ~Timer() override;

  // `newCallback` is not owned; it has to live until Stop and Join. Null: tick without calling anything.
  void SetCallback(TimerCallback* newCallback);
  // Milliseconds between calls; 0 calls without pause. Takes effect at the next cycle, or at the next
  // one-second step.
  void SetPeriod(std::uint32_t milliseconds);

  // The first call comes one period later. A thread of an earlier start that was asked to stop is waited for
  // first, so that no two threads serve one timer.
  void Start() override;
  // No call starts after this. Forgets the callback: set it again before the next Start.
  void Stop() override;
  std::uint32_t Run() override;

 private:
  bool ComesToItsEnd();
  std::uint32_t Period();
  std::uint32_t WaitOnePeriod(std::uint32_t period);
  void Call();
  void SetRunning(bool value);

  Mutex periodLock;
  std::uint32_t periodMs GUARDED_BY(periodLock) = 0;
  Mutex runningLock;
  bool running GUARDED_BY(runningLock) = false;
  Mutex runLock;
  Mutex callbackLock;
  TimerCallback* callback GUARDED_BY(callbackLock) = nullptr;
  std::uint32_t timerId;
};

}  // namespace TamLogUtil
