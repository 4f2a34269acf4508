// Threads, the clock and last errors: the native counterpart of util/thread_calls.cpp and util/clock.cpp.

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "tests/native/handles.h"
#include "tests/native/machine.h"
#include "util/clock.h"
#include "util/exceptions.h"
#include "util/thread_calls.h"

namespace {

using TamLogUtil::Threading::ThreadFunction;

struct ThreadObject final : NativeMachine::Object {
  bool TakeSignal() override { return ended.load(std::memory_order_acquire); }

  std::atomic<bool> ended{false};
};

struct WaitingThread {
  std::shared_ptr<ThreadObject> object;
  ThreadFunction function;
  void* argument;
};

std::atomic<bool> standsStill{false};
std::deque<WaitingThread> waitingThreads;  // used after StandStill only, by one thread
std::atomic<std::uint64_t> stillClock{0};
std::atomic<std::uint32_t> lastThreadId{0};
thread_local std::uint32_t presentThreadId = 0;
thread_local std::uint32_t lastError = 0;

std::uint32_t NewThreadId() {
  return ++lastThreadId;
}

// A thread has its own number even when another runs it: the server identifies threads by their numbers.
void Run(const WaitingThread& thread) {
  const std::uint32_t caller = std::exchange(presentThreadId, NewThreadId());
  thread.function(thread.argument);
  presentThreadId = caller;
  thread.object->ended.store(true, std::memory_order_release);
}

}  // namespace

namespace NativeMachine {

bool StandsStill() {
  return standsStill.load(std::memory_order_relaxed);
}

void StandStill() {
  stillClock = 0;
  waitingThreads.clear();
  standsStill = true;
}

void RunThreads() {
  while (!waitingThreads.empty()) {
    const WaitingThread thread = std::move(waitingThreads.front());
    waitingThreads.pop_front();
    Run(thread);
  }
}

void ResetThreads() {
  standsStill = false;
  waitingThreads.clear();
}

void SetLastError(std::uint32_t error) {
  lastError = error;
}

}  // namespace NativeMachine

namespace TamLogUtil {

std::uint64_t ReadClock() {
  if (NativeMachine::StandsStill()) return stillClock;
  const auto passed = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(passed).count());
}

void SleepFor(std::uint32_t milliseconds) {
  if (NativeMachine::StandsStill()) {
    stillClock += milliseconds;
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }
}

}  // namespace TamLogUtil

namespace TamLogUtil::Threading {

NativeHandle StartThread(ThreadFunction function, void* argument) {
  WaitingThread thread = {
      .object = std::make_shared<ThreadObject>(), .function = function, .argument = argument};
  const NativeHandle handle = NativeMachine::NewHandle(thread.object);
  if (NativeMachine::StandsStill()) {
    waitingThreads.push_back(std::move(thread));
  } else {
    std::thread(Run, std::move(thread)).detach();
  }
  return handle;
}

std::uint32_t PresentThreadId() {
  if (presentThreadId == 0) presentThreadId = NewThreadId();
  return presentThreadId;
}

ThreadWait WaitForEnd(NativeHandle thread, std::uint32_t milliseconds) {
  return NativeMachine::WaitForOne(1, &thread, milliseconds) == 0 ? ThreadWait::Ended : ThreadWait::TimedOut;
}

bool PauseThread(NativeHandle /*thread*/) {
  std::abort();
}

bool ResumeThread(NativeHandle /*thread*/) {
  std::abort();
}

bool EndThread(NativeHandle thread, std::uint32_t /*exitCode*/) {
  if (!NativeMachine::ObjectOf(thread)->TakeSignal()) std::abort();
  return true;
}

std::uint32_t LastError() {
  return lastError;
}

}  // namespace TamLogUtil::Threading

namespace TamLogUtil::Exceptions {

ExceptionWindows::ExceptionWindows(std::string_view text, const ExceptionBase* cause, std::uint32_t code)
    : ExceptionWindows(code != 0 ? code : Threading::LastError(), text, cause) {}

ExceptionWindows::ExceptionWindows(std::uint32_t knownCode, std::string_view text, const ExceptionBase* cause)
    : ExceptionBase(std::string(text), cause), errorCode(knownCode) {}

std::string ExceptionWindows::GetMessage() const {
  return Message() + " - Error code : " + std::to_string(errorCode) + " - ";
}

std::unique_ptr<ExceptionBase> ExceptionWindows::Clone() const {
  return std::make_unique<ExceptionWindows>(*this);
}

}  // namespace TamLogUtil::Exceptions
