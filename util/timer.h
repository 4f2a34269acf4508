#pragma once

// A thread that calls one callback periodically. Coarse on purpose: the period is the pause from the end of
// one call to the start of the next, so calls drift and never catch up; pauses above a second are slept in
// steps of a second.

#include <cstdint>
#include <string>

#include "util/sync.h"
#include "util/thread.h"
#include "util/thread_annotations.h"

namespace TamLogUtil {

class TimerCallback {
 public:
  virtual ~TimerCallback() noexcept(false) = default;
  // Called on the timer's own thread. An exception that leaves it ends that thread.
  virtual void OnTimer(std::uint32_t timerId) = 0;
};

// periodLock, runningLock and callbackLock guard the member that follows them. Run holds runLock except while
// it waits, so a thread that has runLock knows that no call is in progress. Any other thread may call
// SetPeriod, SetCallback, Start and Stop; OnTimer may call Stop.
class Timer : public Threading::Thread {
 public:
  Timer(std::uint32_t id, const std::string& name);
  // Waits for a call in progress and for the thread to end.
  ~Timer() override;

  // Sets the callback. `newCallback` is not owned and must live until Stop and Join. Null: the timer ticks
  // without a call.
  void SetCallback(TimerCallback* newCallback);
  // Sets the period in milliseconds between calls; 0: no pause. Takes effect at the next cycle or one-second
  // step.
  void SetPeriod(std::uint32_t milliseconds);

  // Starts the thread; the first call comes one period later. Waits first for a thread of an earlier start
  // that was requested to stop, so that a timer never has two threads.
  void Start() override;
  // Requests the end; no call starts after this. Forgets the callback: it must be set again before the next
  // Start.
  void Stop() override;
  std::uint32_t Run() override;

 private:
  bool StopAndJoin();
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
