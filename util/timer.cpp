#include "util/timer.h"

#include "util/clock.h"
#include "util/clock_arithmetic.h"
#include "util/exceptions.h"

namespace TamLogUtil {
namespace {

constexpr std::uint32_t kStepMs = 1000;

}  // namespace

Timer::Timer(std::uint32_t id, const std::string& name) : Thread("Timer " + name), timerId(id) {}

// Retries once when a wait fails: an exception would end the process, and the base's destructor, which
// follows, terminates the thread wherever it is.
Timer::~Timer() {
  if (!StopAndJoin()) StopAndJoin();
}

// Returns false when a wait failed; may be repeated.
bool Timer::StopAndJoin() {
  try {
    {
      Mutex::Access access(runLock, Timeout::Infinite);
      SetCallback(nullptr);
    }
    // Again: another thread may have set one while this one waited for the call in progress.
    SetCallback(nullptr);
    Thread::Stop();
    Thread::Join(Timeout::Infinite);
    return true;
  } catch (const Exceptions::ExceptionBase&) {
    return false;
  }
}

void Timer::SetCallback(TimerCallback* newCallback) {
  Mutex::Access access(callbackLock, Timeout::Infinite);
  callback = newCallback;
}

void Timer::SetPeriod(std::uint32_t milliseconds) {
  Mutex::Access access(periodLock, Timeout::Infinite);
  periodMs = milliseconds;
}

void Timer::Start() {
  // Outside runLock, which the old thread needs in order to end.
  if (IsStopRequested()) Join(Timeout::Infinite);
  Mutex::Access access(runLock, Timeout::Infinite);
  SetRunning(true);
  Thread::Start();
}

void Timer::Stop() {
  SetCallback(nullptr);
  Thread::Stop();
}

std::uint32_t Timer::Run() {
  Mutex::Access access(runLock, Timeout::Infinite);
  std::uint32_t period = Period();
  while (!IsStopRequested()) {
    access.Release();
    period = WaitOnePeriod(period);
    access.Acquire(Timeout::Infinite);
    Call();
  }
  SetRunning(false);
  return 0;
}

// Returns the period in effect after the wait.
std::uint32_t Timer::WaitOnePeriod(std::uint32_t period) {
  if (period <= kStepMs) {
    SleepFor(period);
    return Period();
  }
  const WaitClock clock;
  std::uint32_t deadline = PeriodDeadline(0, period);
  while (IsBeforeDeadline(clock.Ticks(), deadline)) {
    if (IsStopRequested()) break;
    SleepFor(kStepMs);
    period = Period();
    deadline = PeriodDeadline(0, period);
  }
  return period;
}

// Called with runLock held. Releases callbackLock before the call, so that the callback may call Stop.
void Timer::Call() {
  TimerCallback* called = nullptr;
  {
    Mutex::Access access(callbackLock, Timeout::Infinite);
    called = callback;
  }
  if (called != nullptr) called->OnTimer(timerId);
}

std::uint32_t Timer::Period() {
  Mutex::Access access(periodLock, Timeout::Infinite);
  return periodMs;
}

void Timer::SetRunning(bool value) {
  Mutex::Access access(runningLock, Timeout::Infinite);
  running = value;
}

}  // namespace TamLogUtil
