#include "util/timer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/wait_until.h"
#include "util/exceptions.h"
#include "util/win32.h"

namespace TamLogUtil {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using TestSupport::WaitUntil;

// Records when each call began and runs the test's function in it.
class Recorder : public TimerCallback {
 public:
  explicit Recorder(std::function<void()> duringCall = {}) : action(std::move(duringCall)) {}

  void OnTimer(std::uint32_t timerId) override {
    {
      const std::lock_guard<std::mutex> guard(lock);
      begins.push_back(Clock::now());
      ids.push_back(timerId);
    }
    if (++inside > 1) overlapped = true;
    if (action) action();
    --inside;
  }

  std::size_t Calls() const {
    const std::lock_guard<std::mutex> guard(lock);
    return begins.size();
  }
  std::vector<Clock::time_point> Begins() const {
    const std::lock_guard<std::mutex> guard(lock);
    return begins;
  }
  std::vector<std::uint32_t> Ids() const {
    const std::lock_guard<std::mutex> guard(lock);
    return ids;
  }

  std::atomic<bool> overlapped{false};

 private:
  std::function<void()> action;
  mutable std::mutex lock;
  std::vector<Clock::time_point> begins;
  std::vector<std::uint32_t> ids;
  std::atomic<int> inside{0};
};

void StartWith(Timer& timer, TimerCallback* callback, std::uint32_t period) {
  timer.SetCallback(callback);
  timer.SetPeriod(period);
  timer.Start();
}

// The time that Stop and Join take together.
milliseconds StopTime(Timer& timer) {
  const auto begin = Clock::now();
  timer.Stop();
  EXPECT_TRUE(timer.Join(Timeout::Infinite));
  return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

TEST(Timer, CallsWithItsNumber) {
  Recorder recorder;
  Timer timer(2, "Flush Writes");
  StartWith(timer, &recorder, 5);
  ASSERT_TRUE(WaitUntil([&] { return recorder.Calls() >= 2; }));
  timer.Stop();
  for (const std::uint32_t id : recorder.Ids()) EXPECT_EQ(id, 2U);
}

TEST(Timer, TheFirstCallComesOnePeriodAfterTheStart) {
  Recorder recorder;
  Timer timer(0, "Test");
  const auto begin = Clock::now();
  StartWith(timer, &recorder, 300);
  ASSERT_TRUE(WaitUntil([&] { return recorder.Calls() >= 1; }));
  EXPECT_GE(recorder.Begins().front() - begin, milliseconds(290));
}

TEST(Timer, ThePauseIsMeasuredFromTheEndOfACall) {
  Recorder recorder([] { Sleep(50); });
  Timer timer(0, "Test");
  StartWith(timer, &recorder, 200);
  ASSERT_TRUE(WaitUntil([&] { return recorder.Calls() >= 5; }));
  timer.Stop();
  const auto begins = recorder.Begins();
  auto least = Clock::duration::max();
  for (std::size_t call = 1; call < begins.size(); ++call) {
    const auto apart = begins[call] - begins[call - 1];
    EXPECT_GE(apart, milliseconds(245));
    least = std::min(least, apart);
  }
  // On a loaded machine single calls come late, but not all of them.
  EXPECT_LE(least, milliseconds(350));
}

TEST(Timer, AShorterPeriodEndsTheCurrentWaitAtTheNextStep) {
  Recorder recorder;
  Timer timer(1, "Test");
  const auto begin = Clock::now();
  StartWith(timer, &recorder, 60000);
  Sleep(300);
  timer.SetPeriod(2000);
  ASSERT_TRUE(WaitUntil([&] { return recorder.Calls() >= 1; }));
  const auto waited = recorder.Begins().front() - begin;
  EXPECT_GE(waited, milliseconds(1990));
  EXPECT_LE(waited, milliseconds(4500));
}

TEST(Timer, AShortNewPeriodEndsALongWaitToo) {
  Recorder recorder;
  Timer timer(1, "Test");
  const auto begin = Clock::now();
  StartWith(timer, &recorder, 60000);
  timer.SetPeriod(10);
  ASSERT_TRUE(WaitUntil([&] { return recorder.Calls() >= 1; }));
  EXPECT_LE(recorder.Begins().front() - begin, milliseconds(3000));
}

TEST(Timer, ALongerPeriodExtendsTheCurrentWait) {
  Recorder recorder;
  Timer timer(1, "Test");
  StartWith(timer, &recorder, 1500);
  Sleep(200);
  timer.SetPeriod(60000);
  Sleep(2800);
  EXPECT_EQ(recorder.Calls(), 0U);
  timer.Stop();
}

TEST(Timer, StopAndJoinTakeAboutASecondAboveAPeriodOfOneSecond) {
  Timer timer(1, "Test");
  StartWith(timer, nullptr, 60000);
  Sleep(200);
  EXPECT_LE(StopTime(timer), milliseconds(2000));
}

TEST(Timer, StopAndJoinTakeAtMostOnePeriodOtherwise) {
  Timer timer(1, "Test");
  StartWith(timer, nullptr, 400);
  Sleep(50);
  EXPECT_LE(StopTime(timer), milliseconds(1000));
}

TEST(Timer, WithoutACallbackItTicksWithoutCallingAnything) {
  Recorder recorder;
  Timer timer(0, "Test");
  timer.SetPeriod(5);
  timer.Start();
  Sleep(50);
  EXPECT_FALSE(timer.Join(Timeout::Immediate));
  // Set while it ticks, the callback is called from the next tick on.
  timer.SetCallback(&recorder);
  EXPECT_TRUE(WaitUntil([&] { return recorder.Calls() >= 1; }));
}

TEST(Timer, StartedAgainItCallsNothingUntilTheCallbackIsSetAgain) {
  Recorder recorder;
  Timer timer(0, "Test");
  StartWith(timer, &recorder, 5);
  ASSERT_TRUE(WaitUntil([&] { return recorder.Calls() >= 1; }));
  StopTime(timer);
  const std::size_t calls = recorder.Calls();
  timer.Start();
  Sleep(100);
  EXPECT_EQ(recorder.Calls(), calls);
  timer.SetCallback(&recorder);
  EXPECT_TRUE(WaitUntil([&] { return recorder.Calls() > calls; }));
}

TEST(Timer, NoCallStartsAfterStop) {
  Recorder recorder;
  Timer timer(0, "Test");
  StartWith(timer, &recorder, 1);
  ASSERT_TRUE(WaitUntil([&] { return recorder.Calls() >= 3; }));
  StopTime(timer);
  const std::size_t calls = recorder.Calls();
  Sleep(50);
  EXPECT_EQ(recorder.Calls(), calls);
}

TEST(Timer, APeriodOfZeroCallsWithoutPause) {
  Recorder recorder;
  Timer timer(0, "Test");
  StartWith(timer, &recorder, 0);
  EXPECT_TRUE(WaitUntil([&] { return recorder.Calls() >= 200; }));
  timer.Stop();
  const auto begins = recorder.Begins();
  EXPECT_LE(begins[199] - begins[0], milliseconds(8000));
}

TEST(Timer, StopMayComeFromTheCallback) {
  Timer timer(0, "Test");
  Recorder recorder([&] { timer.Stop(); });
  StartWith(timer, &recorder, 5);
  EXPECT_TRUE(WaitUntil([&] { return timer.IsStopRequested(); }));
  EXPECT_TRUE(timer.Join(Timeout::Infinite));
  EXPECT_EQ(recorder.Calls(), 1U);
}

TEST(Timer, AnExceptionFromTheCallbackEndsTheThread) {
  TestSupport::DiagnosticLogCapture log;
  Recorder recorder([] { throw Exceptions::ExceptionBase("from the callback"); });
  Timer timer(0, "Test");
  StartWith(timer, &recorder, 5);
  ASSERT_TRUE(WaitUntil([&] { return log.Count() == 1; }));
  EXPECT_EQ(log.Texts().front(),
            "Thread terminated due to unhandled exception : Exception occured during thread Run()\n"
            "from the callback");
  EXPECT_TRUE(timer.Join(Timeout::Infinite));
  EXPECT_EQ(recorder.Calls(), 1U);
}

TEST(Timer, MayBeStartedAgainAfterAnExceptionFromTheCallback) {
  TestSupport::DiagnosticLogCapture log;
  Recorder failing([] { throw Exceptions::ExceptionBase("from the callback"); });
  Recorder recorder;
  Timer timer(0, "Test");
  StartWith(timer, &failing, 5);
  ASSERT_TRUE(WaitUntil([&] { return log.Count() == 1; }));
  StartWith(timer, &recorder, 5);
  EXPECT_TRUE(WaitUntil([&] { return recorder.Calls() >= 2; }));
}

TEST(Timer, DestructionLetsACallInProgressFinish) {
  std::atomic<bool> finished{false};
  Recorder recorder([&] {
    Sleep(200);
    finished = true;
  });
  auto timer = std::make_unique<Timer>(0, "Test");
  StartWith(*timer, &recorder, 5);
  ASSERT_TRUE(WaitUntil([&] { return recorder.Calls() >= 1; }));
  timer.reset();
  EXPECT_TRUE(finished);
  const std::size_t calls = recorder.Calls();
  Sleep(50);
  EXPECT_EQ(recorder.Calls(), calls);
}

TEST(Timer, DestructionOfOneNeverStarted) {
  const Timer timer(0, "Test");
}

TEST(Timer, DestructionWaitsForTheThread) {
  auto timer = std::make_unique<Timer>(0, "Test");
  StartWith(*timer, nullptr, 300);
  Sleep(50);
  timer.reset();
  SUCCEED();
}

// A thread of the earlier start that is still sleeping must not serve the timer together with the new one.
TEST(Timer, StartWaitsForAStoppedThread) {
  std::atomic<bool> finished{false};
  Recorder slow([&] {
    Sleep(300);
    finished = true;
  });
  Recorder recorder;
  Timer timer(0, "Test");
  StartWith(timer, &slow, 5);
  ASSERT_TRUE(WaitUntil([&] { return slow.Calls() >= 1; }));
  timer.Stop();
  timer.Start();
  EXPECT_TRUE(finished);
  timer.SetCallback(&recorder);
  EXPECT_TRUE(WaitUntil([&] { return recorder.Calls() >= 3; }));
  EXPECT_EQ(slow.Calls(), 1U);
  EXPECT_TRUE(StopTime(timer) < milliseconds(5000));
}

TEST(TimerStress, StartAndStopCycles) {
  constexpr int kCycles = 400;
  Recorder recorder;
  Timer timer(0, "Test");
  for (int cycle = 0; cycle < kCycles; ++cycle) {
    StartWith(timer, &recorder, static_cast<std::uint32_t>(cycle % 3));
    if (cycle % 4 == 0) Sleep(1);
    timer.Stop();
    if (cycle % 2 == 0) {
      ASSERT_TRUE(timer.Join(Timeout::Infinite));
    }
  }
  EXPECT_TRUE(timer.Join(Timeout::Infinite));
  EXPECT_FALSE(recorder.overlapped);
}

}  // namespace
}  // namespace TamLogUtil
