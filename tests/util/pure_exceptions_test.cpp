#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "util/exceptions.h"

namespace TamLogUtil::Exceptions {
namespace {

// Counts the live copies, so that tests can check that every level is freed once.
class Counted : public ExceptionBase {
 public:
  Counted(const std::string& text, const ExceptionBase* cause) : ExceptionBase(text, cause) { ++alive; }
  Counted(const Counted& other) : ExceptionBase(other) { ++alive; }
  Counted& operator=(const Counted&) = delete;
  ~Counted() override { --alive; }
  std::unique_ptr<ExceptionBase> Clone() const override { return std::make_unique<Counted>(*this); }

  static inline int alive = 0;
};

TEST(ExceptionBase, WithoutACauseComposesToItsMessageWhateverTheSeparator) {
  const ExceptionBase failure("alone");
  EXPECT_EQ(failure.GetMessage(), "alone");
  EXPECT_EQ(failure.Compose(":"), "alone");
  EXPECT_EQ(failure.Compose("\n"), "alone");
  EXPECT_STREQ(failure.what(), "alone");
}

TEST(ExceptionBase, OnlyTheFirstJointUsesTheSeparator) {
  const ExceptionBase third("level 3");
  const ExceptionBase second("level 2", &third);
  const ExceptionBase first("level 1", &second);
  EXPECT_EQ(first.Compose(":"), "level 1:level 2\nlevel 3");
  EXPECT_STREQ(first.what(), "level 1\nlevel 2\nlevel 3");
  EXPECT_EQ(first.GetMessage(), "level 1");
}

TEST(ExceptionBase, WhatStaysValidAndTheSame) {
  const ExceptionBase cause("cause");
  const ExceptionBase failure("failure", &cause);
  const char* const text = failure.what();
  EXPECT_EQ(failure.what(), text);
  EXPECT_STREQ(text, "failure\ncause");
}

TEST(ExceptionBase, AnEmptyMessageComposesToNothing) {
  const ExceptionBase failure("");
  EXPECT_STREQ(failure.what(), "");
  EXPECT_EQ(failure.Compose(":"), "");
}

TEST(ExceptionBase, KeepsItsOwnCopyOfTheCause) {
  auto cause = std::make_unique<ExceptionBase>("cause");
  const ExceptionBase failure("failure", cause.get());
  cause.reset();
  EXPECT_EQ(failure.Compose("\n"), "failure\ncause");
}

TEST(ExceptionBase, FreesEveryLevelOfTheChainOnce) {
  ASSERT_EQ(Counted::alive, 0);
  {
    const Counted third("3", nullptr);
    const Counted second("2", &third);
    EXPECT_EQ(Counted::alive, 3);
    {
      const Counted first("1", &second);
      EXPECT_EQ(Counted::alive, 6);
      const auto copy = std::make_unique<Counted>(first);
      EXPECT_EQ(Counted::alive, 9);
      EXPECT_EQ(copy->Compose(":"), "1:2\n3");
    }
    EXPECT_EQ(Counted::alive, 3);
    // The destruction of the copies leaves the original unchanged.
    EXPECT_EQ(second.Compose(":"), "2:3");
  }
  EXPECT_EQ(Counted::alive, 0);
}

TEST(ExceptionBase, CopiesTheWholeChain) {
  auto cause = std::make_unique<ExceptionBase>("cause");
  auto failure = std::make_unique<ExceptionBase>("failure", cause.get());
  const ExceptionBase copy(*failure);
  failure.reset();
  cause.reset();
  EXPECT_EQ(copy.Compose("\n"), "failure\ncause");
}

TEST(ExceptionBase, IsCaughtByReferenceWithItsDynamicType) {
  try {
    throw ExceptionFileMapIO("Failed to access File Map View");
  } catch (const ExceptionBase& failure) {
    EXPECT_NE(dynamic_cast<const ExceptionFileMapIO*>(&failure), nullptr);
    EXPECT_EQ(failure.GetMessage(), "Failed to access File Map View");
  }
}

TEST(ExceptionBase, IsAStandardException) {
  try {
    throw ExceptionBase("text");
  } catch (const std::exception& failure) {
    EXPECT_STREQ(failure.what(), "text");
  }
}

TEST(ExceptionFileMapIO, ClonesAsItsOwnTypeAtEveryLevel) {
  const ExceptionFileMapIO cause("cause");
  const ExceptionFileMapIO failure("failure", &cause);
  const std::unique_ptr<ExceptionBase> clone = failure.Clone();
  EXPECT_NE(dynamic_cast<ExceptionFileMapIO*>(clone.get()), nullptr);
  EXPECT_EQ(clone->Compose(":"), "failure:cause");
}

TEST(ExceptionBase, ClonesAsAPlainOne) {
  const ExceptionFileMapIO cause("cause");
  const ExceptionBase failure("failure", &cause);
  const std::unique_ptr<ExceptionBase> clone = failure.Clone();
  EXPECT_EQ(dynamic_cast<ExceptionFileMapIO*>(clone.get()), nullptr);
  EXPECT_EQ(clone->Compose(":"), "failure:cause");
}

}  // namespace
}  // namespace TamLogUtil::Exceptions
