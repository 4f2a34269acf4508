#include "util/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/wait_until.h"
#include "tests/util/work_thread.h"
#include "util/exceptions.h"
#include "util/win32.h"

namespace TamLogUtil::Threading {
namespace {

using Exceptions::ExceptionBase;
using Exceptions::ExceptionWindows;
using TestSupport::WaitUntil;
using Texts = std::vector<std::string>;

constexpr std::uint32_t kFailed = 0xFFFFFFFFU;
const std::string kPrefix = "Thread terminated due to unhandled exception : ";

std::uint32_t Return(std::uint32_t result) {
  return result;
}

TEST(Thread, CountsAsStoppedUntilItIsStarted) {
  WorkThread thread(UntilStopped);
  EXPECT_TRUE(thread.IsStopRequested());
  thread.Start();
  EXPECT_FALSE(thread.IsStopRequested());
  thread.Stop();
  EXPECT_TRUE(thread.IsStopRequested());
}

TEST(Thread, JoiningOneNeverStartedSucceedsAtOnce) {
  WorkThread thread(UntilStopped);
  EXPECT_TRUE(thread.Join(Timeout::Immediate));
  EXPECT_TRUE(thread.Join(Timeout::Infinite));
}

TEST(Thread, JoiningARunningOneWithoutTimeFails) {
  WorkThread thread(UntilStopped);
  thread.Start();
  EXPECT_FALSE(thread.Join(Timeout::Immediate));
  Timeout timeout(50);
  EXPECT_FALSE(thread.Join(timeout));
}

TEST(Thread, JoinSucceedsAfterRunReturned) {
  Signal returning;
  ExitCode exit;
  WorkThread thread([&](PlainThread&) {
    exit.Watch();
    returning.Set();
    return Return(42);
  });
  thread.Start();
  EXPECT_TRUE(returning.Await());
  EXPECT_TRUE(thread.Join(Timeout::Infinite));
  EXPECT_TRUE(thread.Join(Timeout::Immediate));
  EXPECT_EQ(exit.Await(), 42U);
}

TEST(Thread, JoinSharesItsDeadlineWithTheCaller) {
  WorkThread thread(UntilStopped);
  thread.Start();
  Timeout timeout(200);
  EXPECT_FALSE(thread.Join(timeout));
  EXPECT_TRUE(timeout.Expired());
}

TEST(Thread, StopDoesNotWait) {
  Signal go;
  WorkThread thread([&](PlainThread&) {
    go.Await();
    return Return(0);
  });
  thread.Start();
  thread.Stop();
  EXPECT_FALSE(thread.Join(Timeout::Immediate));
  go.Set();
  EXPECT_TRUE(thread.Join(Timeout::Infinite));
}

TEST(Thread, MayBeStartedAgainAfterItsEnd) {
  std::atomic<int> runs{0};
  WorkThread thread([&](PlainThread&) {
    ++runs;
    return Return(0);
  });
  for (int run = 1; run <= 3; ++run) {
    thread.Start();
    EXPECT_TRUE(thread.Join(Timeout::Infinite));
    EXPECT_EQ(runs, run);
  }
}

TEST(Thread, AnExceptionThatLeavesRunIsLoggedOnceWithItsChain) {
  TestSupport::DiagnosticLogCapture log;
  Signal go;
  ExitCode exit;
  WorkThread thread([&](PlainThread&) -> std::uint32_t {
    exit.Watch();
    go.Await();
    const ExceptionBase cause("the cause");
    throw ExceptionBase("the failure", &cause);
  });
  thread.Start();
  go.Set();
  EXPECT_TRUE(thread.Join(Timeout::Infinite));
  ASSERT_TRUE(WaitUntil([&] { return log.Count() == 1; }));
  EXPECT_EQ(exit.Await(), kFailed);
  EXPECT_EQ(log.Texts(), Texts{kPrefix + "Exception occured during thread Run()\nthe failure\nthe cause"});
}

TEST(Thread, CleansUpAfterAnException) {
  TestSupport::DiagnosticLogCapture log;
  std::atomic<int> destroyed{0};
  auto* const thread = new PlainThread([](PlainThread&) -> std::uint32_t { throw ExceptionBase("failure"); });
  thread->CountDestruction(destroyed);
  thread->SetDeleteOnExit();
  thread->Start();
  EXPECT_TRUE(WaitUntil([&] { return log.Count() == 1; }));
  // The object is destroyed before the entry is written.
  EXPECT_EQ(destroyed, 1);
}

TEST(Thread, AnExceptionOfAnotherKindEndsItInSilenceAndWithoutCleanUp) {
  TestSupport::DiagnosticLogCapture log;
  std::atomic<int> destroyed{0};
  ExitCode exit;
  Signal watched;
  auto thread = std::make_unique<PlainThread>([&](PlainThread&) -> std::uint32_t {
    exit.Watch();
    watched.Set();
    throw 0xC0000005U;
  });
  thread->CountDestruction(destroyed);
  thread->SetDeleteOnExit();
  thread->Start();
  ASSERT_TRUE(watched.Await());
  EXPECT_EQ(exit.Await(), kFailed);
  // The handle is still held: the join waits for it.
  EXPECT_TRUE(thread->Join(Timeout::Immediate));
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(log.Texts(), Texts{});
}

TEST(Thread, AStandardExceptionPassesInSilenceToo) {
  TestSupport::DiagnosticLogCapture log;
  WorkThread thread([](PlainThread&) -> std::uint32_t { throw std::runtime_error("unknown"); });
  thread.Start();
  EXPECT_TRUE(thread.Join(Timeout::Infinite));
  EXPECT_EQ(log.Texts(), Texts{});
}

TEST(Thread, ANullArgumentIsLogged) {
  TestSupport::DiagnosticLogCapture log;
  EXPECT_EQ(PlainThread::ThreadStart(nullptr), kFailed);
  EXPECT_EQ(log.Texts(), Texts{kPrefix + "Thread started with null pointer in ThreadStart(this)"});
}

TEST(Thread, ADeleteOnExitObjectIsFreedByItsOwnThread) {
  std::atomic<int> destroyed{0};
  ExitCode exit;
  Signal watched;
  Signal go;
  auto* const thread = new PlainThread([&](PlainThread&) {
    exit.Watch();
    watched.Set();
    go.Await();
    return Return(7);
  });
  thread->CountDestruction(destroyed);
  thread->SetDeleteOnExit();
  thread->Start();
  ASSERT_TRUE(watched.Await());
  EXPECT_EQ(destroyed, 0);
  go.Set();
  EXPECT_EQ(exit.Await(), 7U);
  EXPECT_EQ(destroyed, 1);
}

// A thread that sleeps until it is terminated.
struct SleepingThread {
  explicit SleepingThread(ExitCode& exitCode) : exit(exitCode) {}
  void Start() {
    thread.Start();
    ASSERT_TRUE(watched.Await());
  }

  ExitCode& exit;
  Signal watched;
  PlainThread thread{[this](PlainThread&) {
    exit.Watch();
    watched.Set();
    for (;;) Sleep(1000);
    return Return(0);
  }};
};

TEST(Thread, DestroyingARunningOneEndsItWithExitCodeOne) {
  ExitCode exit;
  {
    SleepingThread sleeping(exit);
    ASSERT_NO_FATAL_FAILURE(sleeping.Start());
  }
  EXPECT_EQ(exit.Await(), 1U);
}

// A thread that destroys its own object in Run must not be terminated by that.
TEST(Thread, DestroyingItselfDoesNotEndTheThread) {
  ExitCode exit;
  Signal watched;
  auto* const thread = new PlainThread([&](PlainThread& self) -> std::uint32_t {
    exit.Watch();
    watched.Set();
    delete &self;
    ExitThread(9);
  });
  thread->Start();
  ASSERT_TRUE(watched.Await());
  EXPECT_EQ(exit.Await(), 9U);
}

TEST(Thread, TerminateEndsItWithTheGivenCode) {
  ExitCode exit;
  SleepingThread sleeping(exit);
  ASSERT_NO_FATAL_FAILURE(sleeping.Start());
  sleeping.thread.Terminate(5);
  EXPECT_EQ(exit.Await(), 5U);
  EXPECT_TRUE(sleeping.thread.Join(Timeout::Immediate));
  EXPECT_NO_THROW(sleeping.thread.Terminate(6));
}

TEST(Thread, PauseHoldsItUntilResume) {
  std::atomic<int> count{0};
  WorkThread thread([&](PlainThread& self) {
    while (!self.IsStopRequested()) {
      ++count;
      Sleep(1);
    }
    return Return(0);
  });
  thread.Start();
  ASSERT_TRUE(WaitUntil([&] { return count > 5; }));
  thread.Pause();
  Sleep(20);
  const int paused = count;
  Sleep(100);
  EXPECT_EQ(count, paused);
  thread.Resume();
  // Does not call the paused thread's object, whose lock of the stop request the thread may hold.
  EXPECT_FALSE(thread.IsStopRequested());
  EXPECT_TRUE(WaitUntil([&] { return count > paused + 5; }));
}

TEST(Thread, PauseAndResumeFailWithoutAThread) {
  WorkThread thread(UntilStopped);
  const std::string pause = "Failed to pause Thread object, SuspendThread() failed - Error code : ";
  const std::string resume = "Failed to resume paused Thread object, ResumeThread() failed - Error code : ";
  try {
    thread.Pause();
    ADD_FAILURE();
  } catch (const ExceptionWindows& failure) {
    EXPECT_EQ(failure.Compose("\n").substr(0, pause.size()), pause);
  }
  try {
    thread.Resume();
    ADD_FAILURE();
  } catch (const ExceptionWindows& failure) {
    EXPECT_EQ(failure.Compose("\n").substr(0, resume.size()), resume);
  }
}

TEST(Thread, JoinFromSeveralThreadsAtOnce) {
  WorkThread thread(UntilStopped);
  thread.Start();
  std::atomic<int> joined{0};
  std::vector<std::thread> joiners;
  joiners.reserve(4);
  for (int joiner = 0; joiner < 4; ++joiner) {
    joiners.emplace_back([&] {
      Timeout timeout(20000);
      if (thread.Join(timeout)) ++joined;
    });
  }
  Sleep(50);
  thread.Stop();
  for (std::thread& joiner : joiners) joiner.join();
  EXPECT_EQ(joined, 4);
}

// The thread closes its handle while the joiner waits: never a failed wait, never a foreign handle.
TEST(ThreadStress, JoinAgainstTheThreadsOwnCleanUp) {
  constexpr int kRounds = 2000;
  int failures = 0;
  for (int round = 0; round < kRounds; ++round) {
    WorkThread thread([round](PlainThread&) {
      if (round % 3 == 1) SwitchToThread();
      if (round % 3 == 2) Sleep(0);
      return Return(0);
    });
    thread.Start();
    if (round % 2 == 0) SwitchToThread();
    Timeout timeout(20000);
    if (!thread.Join(timeout)) ++failures;
  }
  EXPECT_EQ(failures, 0);
}

// With no time left Join goes on without the thread's lock: it may miss the end, but must neither fail nor
// damage the object.
TEST(ThreadStress, JoinWithoutTimeAgainstTheThreadsOwnCleanUp) {
  constexpr int kRounds = 1000;
  for (int round = 0; round < kRounds; ++round) {
    WorkThread thread([](PlainThread&) { return Return(0); });
    thread.Start();
    ASSERT_TRUE(WaitUntil([&] { return thread.Join(Timeout::Immediate); }));
  }
}

// Start must not touch an object that its own thread has already destroyed.
TEST(ThreadStress, DeleteOnExitObjectsThatEndAtOnce) {
  constexpr int kRounds = 3000;
  std::atomic<int> destroyed{0};
  for (int round = 0; round < kRounds; ++round) {
    auto* const thread = new PlainThread([](PlainThread&) { return Return(0); });
    thread->CountDestruction(destroyed);
    thread->SetDeleteOnExit();
    thread->Start();
    if (round % 100 == 0) {
      ASSERT_TRUE(WaitUntil([&] { return destroyed >= round; }));
    }
  }
  EXPECT_TRUE(WaitUntil([&] { return destroyed == kRounds; }));
}

// The destructor and the thread's clean-up take turns: the handle is closed once, and a thread whose object
// is gone no longer touches it. Run must have ended first: destroying a subclass while its Run is running is
// never safe.
TEST(ThreadStress, DestroyingObjectsWhoseThreadsAreJustEnding) {
  constexpr int kRounds = 500;
  for (int round = 0; round < kRounds; ++round) {
    std::atomic<bool> over{false};
    PlainThread thread([&](PlainThread&) {
      over = true;
      return Return(0);
    });
    thread.Start();
    ASSERT_TRUE(WaitUntil([&] { return over.load(); }));
  }
}

}  // namespace
}  // namespace TamLogUtil::Threading
