#include "util/timeout.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "util/diagnostic_log.h"
#include "util/sync.h"
#include "util/win32.h"

namespace TamLogUtil {
namespace {

// Taken in a static initialiser, before main.
const std::uint32_t infiniteBeforeMain = Timeout::Infinite.Remaining();

TEST(Timeout, ZeroIsExpiredAtOnceAndNeverChanges) {
  Timeout none(0);
  for (int query = 0; query < 2; ++query) {
    EXPECT_TRUE(none.Expired());
    EXPECT_EQ(none.Remaining(), 0U);
    Sleep(20);
  }
}

TEST(Timeout, ForeverNeverExpiresNorChanges) {
  Timeout forever(Timeout::kForever);
  for (int query = 0; query < 2; ++query) {
    EXPECT_FALSE(forever.Expired());
    EXPECT_EQ(forever.Remaining(), 0xFFFFFFFFU);
    Sleep(20);
  }
}

TEST(Timeout, TheProcessWideInstancesAreZeroAndForever) {
  EXPECT_EQ(infiniteBeforeMain, 0xFFFFFFFFU);
  EXPECT_FALSE(Timeout::Infinite.Expired());
  EXPECT_EQ(Timeout::Infinite.Remaining(), 0xFFFFFFFFU);
  EXPECT_TRUE(Timeout::Immediate.Expired());
  EXPECT_EQ(Timeout::Immediate.Remaining(), 0U);
}

TEST(Timeout, CountsDown) {
  Timeout timeout(10000);
  Sleep(100);
  const std::uint32_t first = timeout.Remaining();
  EXPECT_LE(first, 9910U);
  EXPECT_GE(first, 1U);
  EXPECT_FALSE(timeout.Expired());
  Sleep(50);
  EXPECT_LT(timeout.Remaining(), first);
}

TEST(Timeout, QueriedAfterItRanOutStaysAtZero) {
  Timeout timeout(50);
  Sleep(80);
  EXPECT_EQ(timeout.Remaining(), 0U);
  EXPECT_TRUE(timeout.Expired());
  Sleep(20);
  EXPECT_EQ(timeout.Remaining(), 0U);
}

// Code that runs after main takes locks and writes entries.
TEST(TimeoutDeathTest, LocksAndLogStillWorkInExitHooks) {
  EXPECT_EXIT(
      {
        static Mutex lock;
        SetLogStream(&std::cerr);
        const int hooked = std::atexit([] {
          Mutex::Access access(lock, Timeout::Infinite);
          WriteLog("from the exit hook");
        });
        std::exit(hooked);
      },
      testing::ExitedWithCode(0), "from the exit hook");
}

}  // namespace
}  // namespace TamLogUtil
