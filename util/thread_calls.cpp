#include "util/thread_calls.h"

#include "util/win32.h"

namespace TamLogUtil::Threading {
namespace {

constexpr DWORD kCallFailed = 0xFFFFFFFFU;

}  // namespace

NativeHandle StartThread(ThreadFunction function, void* argument) {
  return CreateThread(nullptr, 0, function, argument, 0, nullptr);
}

std::uint32_t PresentThreadId() {
  return GetCurrentThreadId();
}

ThreadWait WaitForEnd(NativeHandle thread, std::uint32_t milliseconds) {
  const DWORD result = WaitForSingleObject(thread, milliseconds);
  if (result == WAIT_FAILED) return ThreadWait::Failed;
  return result == WAIT_OBJECT_0 ? ThreadWait::Ended : ThreadWait::TimedOut;
}

bool PauseThread(NativeHandle thread) {
  return SuspendThread(thread) != kCallFailed;
}

bool ResumeThread(NativeHandle thread) {
  return ::ResumeThread(thread) != kCallFailed;
}

bool EndThread(NativeHandle thread, std::uint32_t exitCode) {
  return TerminateThread(thread, exitCode) != 0;
}

std::uint32_t LastError() {
  return GetLastError();
}

}  // namespace TamLogUtil::Threading
