#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "tests/support/expect_failure.h"
#include "tests/support/real_call.h"
#include "tests/support/wait_until.h"
#include "tests/util/work_thread.h"
#include "util/exceptions.h"
#include "util/win32.h"

// Thread calls of the system that fail or take a long time.

namespace {

using TestSupport::RealCall;

std::atomic<bool> failCreate{false};
std::atomic<bool> failTerminate{false};
std::atomic<bool> failDuplicate{false};
std::atomic<bool> failWait{false};
std::atomic<unsigned> createDelayMs{0};
std::atomic<bool> creating{false};
std::atomic<int> closed{0};

HANDLE WINAPI FakeCreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack, LPTHREAD_START_ROUTINE routine,
                               LPVOID argument, DWORD flags, LPDWORD id) {
  if (failCreate) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  creating = true;
  Sleep(createDelayMs);
  return RealCall<decltype(&CreateThread)>("kernel32", "CreateThread")(attributes, stack, routine, argument,
                                                                       flags, id);
}

WINBOOL WINAPI FakeTerminateThread(HANDLE thread, DWORD exitCode) {
  const WINBOOL ended = RealCall<decltype(&TerminateThread)>("kernel32", "TerminateThread")(thread, exitCode);
  if (!failTerminate) return ended;
  SetLastError(ERROR_ACCESS_DENIED);
  return FALSE;
}

WINBOOL WINAPI FakeDuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, LPHANDLE target,
                                   DWORD access, WINBOOL inherit, DWORD options) {
  if (failDuplicate) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
  }
  return RealCall<decltype(&DuplicateHandle)>("kernel32", "DuplicateHandle")(
      sourceProcess, source, targetProcess, target, access, inherit, options);
}

// Makes only the waits for a thread fail: locks keep working.
DWORD WINAPI FakeWait(HANDLE handle, DWORD milliseconds) {
  if (failWait && GetThreadId(handle) != 0) {
    SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
  }
  return RealCall<decltype(&WaitForSingleObject)>("kernel32", "WaitForSingleObject")(handle, milliseconds);
}

// Changes the last error, as a successful close may.
WINBOOL WINAPI FakeCloseHandle(HANDLE handle) {
  ++closed;
  const WINBOOL result = RealCall<decltype(&CloseHandle)>("kernel32", "CloseHandle")(handle);
  if (result != 0) SetLastError(ERROR_SUCCESS);
  return result;
}

}  // namespace

extern "C" {
decltype(&CreateThread) __imp_CreateThread = FakeCreateThread;
decltype(&TerminateThread) __imp_TerminateThread = FakeTerminateThread;
decltype(&DuplicateHandle) __imp_DuplicateHandle = FakeDuplicateHandle;
decltype(&WaitForSingleObject) __imp_WaitForSingleObject = FakeWait;
decltype(&CloseHandle) __imp_CloseHandle = FakeCloseHandle;
}

namespace TamLogUtil::Threading {
namespace {

using Exceptions::ExceptionWindows;
using TestSupport::ExpectFailure;
using TestSupport::WaitUntil;
using TestSupport::WindowsText;

TEST(ThreadFaults, AThreadThatCannotBeCreatedFailsTheStart) {
  WorkThread thread(UntilStopped);
  failCreate = true;
  ExpectFailure<ExceptionWindows>(
      [&] { thread.Start(); },
      WindowsText("Failed to start Thread object, invalid handle returned by CreateThread()",
                  ERROR_NOT_ENOUGH_MEMORY));
  failCreate = false;
  EXPECT_TRUE(thread.Join(Timeout::Immediate));
  thread.Start();
  EXPECT_FALSE(thread.Join(Timeout::Immediate));
}

TEST(ThreadFaults, AFailedTerminationThrowsAfterTheHandleIsClosed) {
  Signal running;
  PlainThread thread([&](PlainThread&) -> std::uint32_t {
    running.Set();
    for (;;) Sleep(1000);
  });
  thread.Start();
  ASSERT_TRUE(running.Await());
  failTerminate = true;
  const int before = closed;
  ExpectFailure<ExceptionWindows>(
      [&] { thread.Terminate(1); },
      WindowsText("Failed to terminate thread, TerminateThread() did not succeed", ERROR_ACCESS_DENIED));
  failTerminate = false;
  EXPECT_EQ(closed, before + 1);
  EXPECT_TRUE(thread.Join(Timeout::Immediate));
}

// The owner of the duplicate then silently stays empty; its value must not be waited for.
TEST(ThreadFaults, AHandleThatCannotBeDuplicatedFailsTheJoin) {
  WorkThread thread(UntilStopped);
  thread.Start();
  failDuplicate = true;
  ExpectFailure<ExceptionWindows>(
      [&] { thread.Join(Timeout::Infinite); },
      WindowsText("Failed to wait for Thread object in Join()", ERROR_ACCESS_DENIED));
  failDuplicate = false;
}

TEST(ThreadFaults, AWaitThatFailsFailsTheJoin) {
  WorkThread thread(UntilStopped);
  thread.Start();
  failWait = true;
  Timeout timeout(5000);
  ExpectFailure<ExceptionWindows>(
      [&] { thread.Join(timeout); },
      WindowsText("Failed to wait for Thread object in Join()", ERROR_INVALID_HANDLE));
  failWait = false;
}

// Start holds the thread's lock for as long as the system takes to create a thread.
TEST(ThreadFaults, TheTimeOutOfAJoinBoundsItsWaitForTheLock) {
  WorkThread thread(UntilStopped);
  createDelayMs = 1000;
  creating = false;
  std::thread starter([&] { thread.Start(); });
  ASSERT_TRUE(WaitUntil([] { return creating.load(); }));
  createDelayMs = 0;
  Timeout timeout(100);
  const auto begin = std::chrono::steady_clock::now();
  // It goes on without the lock and finds no handle yet.
  EXPECT_TRUE(thread.Join(timeout));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(800));
  starter.join();
}

TEST(ThreadFaultsDeathTest, AThreadThatCannotBeEndedTakesTheProcessWithIt) {
  EXPECT_EXIT(
      {
        auto* const thread = new PlainThread([](PlainThread&) -> std::uint32_t {
          for (;;) Sleep(1000);
        });
        thread->Start();
        failTerminate = true;
        delete thread;
      },
      testing::ExitedWithCode(3), "");
}

}  // namespace
}  // namespace TamLogUtil::Threading
