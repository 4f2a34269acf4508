// Time-outs and timers of a process and a machine that have run for 24.8 days, 49.7 days and longer: a count
// of milliseconds in 32 bits wraps there.

#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>
#include <vector>

#include "tests/support/wait_until.h"
#include "tests/util/set_clock.h"
#include "util/clock.h"
#include "util/timeout.h"
#include "util/timer.h"

namespace TamLogUtil {
namespace {

using TestSupport::SetClock;
using TestSupport::WaitUntil;

constexpr std::uint64_t kHalf = std::uint64_t{1} << 31;
constexpr std::uint64_t kWrap = std::uint64_t{1} << 32;
constexpr std::uint64_t kDay = 24U * 3600U * 1000U;

// Readings before, at and after each wrap; the first is that of a machine that has just started.
std::vector<std::uint64_t> Readings() {
  std::vector<std::uint64_t> readings = {0};
  for (const std::uint64_t wrap : {kHalf, kWrap, kWrap + kHalf, 2 * kWrap}) {
    for (const std::uint64_t before : {300000U, 1500U, 1000U, 1U, 0U}) readings.push_back(wrap - before);
    readings.push_back(wrap + 1);
  }
  return readings;
}

class CallTimes : public TimerCallback {
 public:
  void OnTimer(std::uint32_t /*timerId*/) override {
    const std::lock_guard<std::mutex> guard(lock);
    times.push_back(ReadClock());
  }
  std::vector<std::uint64_t> Get() const {
    const std::lock_guard<std::mutex> guard(lock);
    return times;
  }

 private:
  mutable std::mutex lock;
  std::vector<std::uint64_t> times;
};

// The pauses before the first two calls of a timer that is started at the reading.
std::vector<std::uint64_t> Pauses(std::uint64_t reading, std::uint32_t period) {
  SetClock(reading);
  CallTimes calls;
  Timer timer(0, "Test");
  timer.SetCallback(&calls);
  timer.SetPeriod(period);
  timer.Start();
  EXPECT_TRUE(WaitUntil([&] { return calls.Get().size() >= 2; }));
  timer.Stop();
  timer.Join(Timeout::Infinite);
  const std::vector<std::uint64_t> times = calls.Get();
  return {times.at(0) - reading, times.at(1) - times.at(0)};
}

TEST(ClockWrap, ATimerPausesAsLongAsOnAFreshMachine) {
  for (const std::uint32_t period : {1U, 1000U, 1001U, 2000U, 60000U}) {
    const std::uint64_t pause = period <= 1000 ? period : (period + 999U) / 1000U * 1000U;
    for (const std::uint64_t reading : Readings()) {
      EXPECT_EQ(Pauses(reading, period), (std::vector<std::uint64_t>{pause, pause}))
          << period << " ms at " << reading;
    }
  }
}

// The default period of "Write To Disk".
TEST(ClockWrap, ATimerOfFiveMinutesDoesNotSpinBeforeTheWrap) {
  for (const std::uint64_t wrap : {kHalf, kWrap}) {
    EXPECT_EQ(Pauses(wrap - 1000, 300000), (std::vector<std::uint64_t>{300000, 300000}));
  }
}

// 4,294,968 ms * 1000 wraps to 704: settings in the field depend on it.
TEST(ClockWrap, LongPeriodsAreAsShortAsOnAFreshMachine) {
  for (const std::uint64_t reading : Readings()) {
    EXPECT_EQ(Pauses(reading, 4294968), (std::vector<std::uint64_t>{0, 0})) << reading;
    EXPECT_EQ(Pauses(reading, 4294968 + 1500), (std::vector<std::uint64_t>{2000, 2000})) << reading;
  }
}

TEST(ClockWrap, ATimeOutCountsDownAsOnAFreshMachine) {
  for (const std::uint64_t reading : Readings()) {
    SetClock(reading);
    Timeout timeout(15000);
    SetClock(reading + 1);
    EXPECT_EQ(timeout.Remaining(), 14999U) << reading;
    SetClock(reading + 14999);
    EXPECT_EQ(timeout.Remaining(), 1U) << reading;
    SetClock(reading + 15000);
    EXPECT_TRUE(timeout.Expired()) << reading;
  }
}

// The differences that wrap in the product end a time-out, and the others count.
TEST(ClockWrap, LongTimeOutsEndAsOnAFreshMachine) {
  for (const std::uint64_t reading : Readings()) {
    SetClock(reading);
    Timeout counted(4000000);
    Timeout ended(4000000);
    SetClock(reading + 2147483);
    EXPECT_EQ(counted.Remaining(), 4000000U - 2147483U) << reading;
    SetClock(reading + 2147484);
    EXPECT_EQ(ended.Remaining(), 0U) << reading;
  }
}

TEST(ClockWrap, AfterAMonthAsleepNoWaitGoesOn) {
  for (const std::uint64_t days : {25U, 30U, 50U, 75U, 1000U}) {
    SetClock(1000);
    Timeout timeout(15000);
    const WaitClock clock;
    SetClock(1000 + days * kDay);
    EXPECT_TRUE(timeout.Expired()) << days;
    EXPECT_EQ(clock.Ticks(), 0x7FFFFFFF) << days;
  }
}

}  // namespace
}  // namespace TamLogUtil
