// The clock of the product, with the time of day in the test's hands.

#include "util/clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <ctime>

#include "tests/support/real_call.h"
#include "util/timeout.h"
#include "util/win32.h"

namespace {

constexpr ULONGLONG kHour = 3600ULL * 10000000ULL;  // in units of FILETIME
std::atomic<bool> setBack{false};

void WINAPI FakeGetSystemTime(LPFILETIME time) {
  TestSupport::RealCall<decltype(&GetSystemTimeAsFileTime)>("kernel32", "GetSystemTimeAsFileTime")(time);
  if (!setBack) return;
  ULARGE_INTEGER value = {};
  value.LowPart = time->dwLowDateTime;
  value.HighPart = time->dwHighDateTime;
  value.QuadPart -= kHour;
  time->dwLowDateTime = value.LowPart;
  time->dwHighDateTime = value.HighPart;
}

}  // namespace

extern "C" {
// The run-time's clock follows the time of day.
clock_t clock(void) {
  return setBack ? 0 : 3600 * 1000;
}
decltype(&GetSystemTimeAsFileTime) __imp_GetSystemTimeAsFileTime = FakeGetSystemTime;
}

namespace TamLogUtil {
namespace {

TEST(ReadClock, GoesOnWhenTheTimeOfDayIsSetBack) {
  const std::uint64_t before = ReadClock();
  const WaitClock wait;
  Timeout timeout(600000);
  setBack = true;
  Sleep(50);
  const std::uint64_t after = ReadClock();
  EXPECT_GT(after, before);
  EXPECT_LT(after, before + 60000);
  EXPECT_GT(wait.Ticks(), 0);
  EXPECT_LT(timeout.Remaining(), 600000U);
  EXPECT_FALSE(timeout.Expired());
  setBack = false;
}

}  // namespace
}  // namespace TamLogUtil
