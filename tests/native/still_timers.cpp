// Timers without threads: the caller makes a tick by calling OnTimer.

#include "util/timer.h"

namespace TamLogUtil {

Timer::Timer(std::uint32_t id, const std::string& name) : Thread("Timer " + name), timerId(id) {}
Timer::~Timer() = default;

void Timer::SetCallback(TimerCallback* newCallback) {
  const Mutex::Access access(callbackLock, Timeout::Infinite);
  callback = newCallback;
}

void Timer::SetPeriod(std::uint32_t milliseconds) {
  const Mutex::Access access(periodLock, Timeout::Infinite);
  periodMs = milliseconds;
}

void Timer::Start() {
  const Mutex::Access access(runningLock, Timeout::Infinite);
  running = true;
}

void Timer::Stop() {
  SetCallback(nullptr);
  Thread::Stop();
}

std::uint32_t Timer::Run() {
  return timerId;
}

}  // namespace TamLogUtil
