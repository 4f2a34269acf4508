// The dormant monitor, started by the test.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "store/message_file_monitor.h"
#include "tests/store/log_file_fixture.h"
#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/wait_until.h"

namespace StoreTest {
namespace {

using Monitor = LogFile;
using TamLogUtil::Timeout;
using TestSupport::WaitUntil;
using Clock = std::chrono::steady_clock;

TEST_F(Monitor, ItsPassFreesTheFileFromAReaderThatDied) {
  Open();
  TestReader dead(names);
  ASSERT_TRUE(dead.Enter(1000));
  MessageFileMonitor monitor(&*server, 200, 100);
  monitor.Start();
  EXPECT_TRUE(WaitUntil([&] { return dead.Header().readCount == 0; }));
  EXPECT_TRUE(WaitUntil([&] { return dead.WaitForReadWait(0); }));
}

// The end of write access does not signal the event that writers wait for; the next reader that leaves does,
// and the monitor lets it in.
TEST_F(Monitor, AFlushThatWaitsForADeadReaderGoesOnWithTheNextReaderThatLeaves) {
  Open();
  TestReader dead(names);
  ASSERT_TRUE(dead.Enter(1000));
  Submit("a", At(12, 0));
  std::atomic<bool> done = false;
  std::thread flush([&] {
    Flush();
    done = true;
  });
  ASSERT_TRUE(WaitUntil([&] { return !dead.WaitForReadWait(0); }));
  TestReader next(names);
  EXPECT_FALSE(next.Enter(50));
  {
    const TestSupport::DiagnosticLogCapture log;
    MessageFileMonitor monitor(&*server, 200, 100);
    monitor.Start();
    ASSERT_TRUE(next.Enter(10000));
    next.Leave();
    EXPECT_TRUE(WaitUntil([&] { return done.load(); }));
    monitor.Stop();
    EXPECT_TRUE(monitor.Join(Timeout::Infinite));
    EXPECT_EQ(log.Texts().at(0), "File access rights timed out, forcing access.");
  }
  flush.join();
  EXPECT_EQ(Newest(), (Texts{"a"}));
}

TEST_F(Monitor, ItsPassPublishesAChangeThatWaits) {
  Open();
  const std::uint64_t before = Header().changeCount;
  Submit("pending", At(12, 0));
  MessageFileMonitor monitor(&*server, 5000, 4000);
  monitor.Start();
  EXPECT_TRUE(WaitUntil([&] { return Header().changeCount == before + 1; }));
}

TEST_F(Monitor, WithoutAServerItOnlySleeps) {
  const TestSupport::DiagnosticLogCapture log;
  MessageFileMonitor monitor(nullptr, 50, 50);
  monitor.Start();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  monitor.Stop();
  EXPECT_TRUE(monitor.Join(Timeout::Infinite));
  EXPECT_EQ(log.Count(), 0U);
}

TEST_F(Monitor, AServerMayBeSetWhileItRuns) {
  Open();
  TestReader dead(names);
  ASSERT_TRUE(dead.Enter(1000));
  MessageFileMonitor monitor(nullptr, 100, 50);
  monitor.Start();
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  EXPECT_EQ(dead.Header().readCount, 1);
  monitor.SetServer(&*server);
  EXPECT_TRUE(WaitUntil([&] { return dead.Header().readCount == 0; }));
}

TEST_F(Monitor, StoppedInItsSleepItEndsWithinASecond) {
  MessageFileMonitor monitor(nullptr, 30000, 100);
  monitor.Start();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const auto asked = Clock::now();
  monitor.Stop();
  EXPECT_TRUE(monitor.Join(Timeout::Infinite));
  EXPECT_LT(Clock::now() - asked, std::chrono::milliseconds(2500));
}

TEST_F(Monitor, AFailedPassIsLoggedAndFollowedByTheNextAtOnce) {
  const TestSupport::DiagnosticLogCapture log;
  MessageFileMonitor monitor(&*server, 30000, 100);  // the file is not open
  monitor.Start();
  EXPECT_TRUE(WaitUntil([&] { return log.Count() >= 3; }));
  EXPECT_EQ(log.Texts().at(0),
            "Exception was thrown in the MessageFileMonitor thread -"
            "Failed to grab write access, some handles or pointers are invalid");
}

TEST_F(Monitor, TakesTheFilesInProcessLockAroundAPass) {
  Open();
  TestReader dead(names);
  ASSERT_TRUE(dead.Enter(1000));
  MessageFileMonitor monitor(&*server, 100, 50);
  {
    const TamLogUtil::Mutex::Access held(server->InProcessLock(), Timeout::Infinite);
    monitor.Start();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(dead.Header().readCount, 1);
  }
  EXPECT_TRUE(WaitUntil([&] { return dead.Header().readCount == 0; }));
}

TEST_F(Monitor, OfTheServerItselfIsNeverStarted) {
  Open();
  TestReader dead(names);
  ASSERT_TRUE(dead.Enter(1000));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(dead.Header().readCount, 1);
}

}  // namespace
}  // namespace StoreTest
