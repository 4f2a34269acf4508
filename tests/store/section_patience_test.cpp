#include "store/section_patience.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/util/set_clock.h"

namespace {

using TamLogUtil::ReadClock;
using TamLogUtil::Exceptions::ExceptionBase;
using TamLogUtil::Exceptions::ExceptionWindows;

constexpr std::uint32_t kErrors[] = {32, 183, 1224};

class Patience : public testing::Test {
 protected:
  Patience() { TestSupport::SetClock(0); }

  // Fails with `error` until the clock has reached `until`.
  auto FailingUntil(std::uint64_t until, std::uint32_t error) {
    return [this, until, error](bool last) {
      attempts.push_back(last);
      if (ReadClock() < until) throw ExceptionWindows("the step", nullptr, error);
    };
  }

  SectionPatience patience;
  std::vector<bool> attempts;  // whether each was the last one
};

TEST_F(Patience, AStepThatSucceedsIsCalledOnce) {
  patience.Try(FailingUntil(0, 183));
  EXPECT_EQ(attempts, std::vector<bool>{false});
  EXPECT_EQ(ReadClock(), 0U);
}

TEST_F(Patience, WhatIsHeldIsTriedAgainEveryTenMilliseconds) {
  for (const std::uint32_t error : kErrors) {
    TestSupport::SetClock(0);
    attempts.clear();
    SectionPatience().Try(FailingUntil(300, error));
    EXPECT_EQ(attempts.size(), 31U) << error;
    EXPECT_EQ(ReadClock(), 300U) << error;
  }
}

TEST_F(Patience, EndsAfterTwoSecondsWithTheFailureOfALastAttempt) {
  for (const std::uint32_t error : kErrors) {
    TestSupport::SetClock(0);
    attempts.clear();
    try {
      SectionPatience().Try(FailingUntil(1000000, error));
      ADD_FAILURE() << "no exception";
    } catch (const ExceptionWindows& failure) {
      EXPECT_EQ(failure.ErrorCode(), error);
    }
    EXPECT_EQ(ReadClock(), 2000U);
    EXPECT_EQ(attempts.size(), 201U);
    EXPECT_TRUE(attempts.back());
  }
}

TEST_F(Patience, TheLastAttemptMaySucceed) {
  const auto onlyTheLast = [](bool last) {
    if (!last) throw ExceptionWindows("the step", nullptr, 183);
  };
  EXPECT_NO_THROW(patience.Try(onlyTheLast));
  EXPECT_EQ(ReadClock(), 2000U);
}

TEST_F(Patience, IsSharedByTheStepsOfAnOpen) {
  patience.Try(FailingUntil(1500, 1224));
  EXPECT_THROW(patience.Try(FailingUntil(1000000, 183)), ExceptionWindows);
  EXPECT_EQ(ReadClock(), 2000U);
  EXPECT_THROW(patience.Try(FailingUntil(1000000, 183)), ExceptionWindows);
  EXPECT_EQ(ReadClock(), 2000U);
}

TEST_F(Patience, AnyOtherFailureIsReportedAtOnce) {
  for (const std::uint32_t error : {1U, 5U, 6U, 33U, 112U, 1006U, 1450U, 1455U}) {
    attempts.clear();
    EXPECT_THROW(patience.Try(FailingUntil(1000000, error)), ExceptionWindows) << error;
    EXPECT_EQ(attempts.size(), 1U) << error;
  }
  EXPECT_THROW(patience.Try([](bool) { throw ExceptionBase("a plain one"); }), ExceptionBase);
  EXPECT_EQ(ReadClock(), 0U);
}

}  // namespace
