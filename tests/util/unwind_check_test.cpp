#include "util/unwind_check.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace TamLogUtil {
namespace {

// Fails when it is destroyed, like an owner whose release fails.
class FailsAtItsEnd {
 public:
  ~FailsAtItsEnd() noexcept(false) {
    unwindCheck.Finish([] { throw std::runtime_error("release failed"); });
  }

 private:
  UnwindCheck unwindCheck;
};

// The text of the exception that leaves the scope of one object; empty for none.
std::string FailureOfOneScope() {
  try {
    const FailsAtItsEnd owner;
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
  return {};
}

// Its destructor records the failure of an object of its own.
class LooksAtItsEnd {
 public:
  explicit LooksAtItsEnd(std::string& seenFailure) : seen(seenFailure) {}
  ~LooksAtItsEnd() { seen = FailureOfOneScope(); }

 private:
  std::string& seen;
};

TEST(UnwindCheck, WithoutAnotherExceptionTheFailureLeaves) {
  EXPECT_EQ(FailureOfOneScope(), "release failed");
}

TEST(UnwindCheck, WhileTheStackUnwindsTheFailureIsDropped) {
  try {
    const FailsAtItsEnd owner;
    throw std::logic_error("first");
  } catch (const std::logic_error& failure) {
    EXPECT_STREQ(failure.what(), "first");
  }
}

TEST(UnwindCheck, InsideAHandlerTheFailureLeaves) {
  std::string seen;
  try {
    throw std::logic_error("caught");
  } catch (const std::logic_error&) {
    seen = FailureOfOneScope();
  }
  EXPECT_EQ(seen, "release failed");
}

TEST(UnwindCheck, InADestructorThatRunsDuringAnUnwindTheFailureReachesThatDestructor) {
  std::string seen;
  try {
    const LooksAtItsEnd owner(seen);
    throw std::logic_error("outer");
  } catch (const std::logic_error& failure) {
    EXPECT_STREQ(failure.what(), "outer");
  }
  EXPECT_EQ(seen, "release failed");
}

// Its destructor lets an exception leave the scope of an object of its own.
class UnwindsAtItsEnd {
 public:
  explicit UnwindsAtItsEnd(std::string& seenFailure) : seen(seenFailure) {}
  ~UnwindsAtItsEnd() {
    try {
      const FailsAtItsEnd owner;
      throw std::logic_error("inner");
    } catch (const std::logic_error& failure) {
      seen = failure.what();
    }
  }

 private:
  std::string& seen;
};

TEST(UnwindCheck, ANestedUnwindDropsTheFailureToo) {
  std::string seen;
  try {
    const UnwindsAtItsEnd owner(seen);
    throw std::logic_error("outer");
  } catch (const std::logic_error& failure) {
    EXPECT_STREQ(failure.what(), "outer");
  }
  EXPECT_EQ(seen, "inner");
}

TEST(UnwindCheck, AStepThatSucceedsRunsOnce) {
  int runs = 0;
  const UnwindCheck unwindCheck;
  unwindCheck.Finish([&] { ++runs; });
  EXPECT_EQ(runs, 1);
  EXPECT_FALSE(unwindCheck.IsUnwinding());
}

}  // namespace
}  // namespace TamLogUtil
