// Polling with a deadline.

#include "tamlogctl/base/wait.h"

#include <gtest/gtest.h>

#include "tamlogctl/base/exit_code.h"

namespace TamLogCtl {

namespace {

TEST(WaitUntil, EndsAsSoonAsTheStateIsReached) {
  int asked = 0;
  const std::uint64_t start = Ticks();
  EXPECT_EQ(WaitUntil(60000, 1, [&asked] { return ++asked == 3; }), kDone);
  EXPECT_EQ(asked, 3);
  EXPECT_LT(Ticks() - start, 30000U);
}

TEST(WaitUntil, GivesUpAfterThePatience) {
  const std::uint64_t start = Ticks();
  EXPECT_EQ(WaitUntil(60, 5, [] { return false; }), kTimedOut);
  EXPECT_GE(Ticks() - start, 60U);
}

TEST(WaitUntil, AsksOnceWithoutAnyPatience) {
  int asked = 0;
  EXPECT_EQ(WaitUntil(0, 1000, [&asked] { return ++asked > 1; }), kTimedOut);
  EXPECT_EQ(asked, 1);
}

}  // namespace

}  // namespace TamLogCtl
