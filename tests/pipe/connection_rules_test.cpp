#include "pipe/connection_rules.h"

#include <gtest/gtest.h>

namespace {

TEST(JudgeFailedRead, ClientThatIsGoneEndsTheConnection) {
  EXPECT_EQ(JudgeFailedRead(109), AfterFailedRead::EndConnection);
  EXPECT_EQ(JudgeFailedRead(230), AfterFailedRead::EndConnection);
  EXPECT_EQ(JudgeFailedRead(233), AfterFailedRead::EndConnection);
}

TEST(JudgeFailedRead, MoreDataReadsTheRestOfTheMessage) {
  EXPECT_EQ(JudgeFailedRead(234), AfterFailedRead::ReadRestOfMessage);
}

TEST(JudgeFailedRead, SilenceCancelsTheReadAndEnds) {
  EXPECT_EQ(JudgeFailedRead(258), AfterFailedRead::CancelReadAndEnd);
}

TEST(JudgeFailedRead, KernelStatusIsNotTakenForTheErrorCodeOfTheSameMeaning) {
  EXPECT_EQ(JudgeFailedRead(0x80000005), AfterFailedRead::TryAgain);  // more data
  EXPECT_EQ(JudgeFailedRead(0xC000014B), AfterFailedRead::TryAgain);  // broken pipe
}

TEST(JudgeFailedRead, AnythingElseIsTriedAgain) {
  for (const std::uint32_t error : {1U, 5U, 6U, 108U, 110U, 229U, 231U, 232U, 235U, 257U, 259U, 995U, 997U}) {
    EXPECT_EQ(JudgeFailedRead(error), AfterFailedRead::TryAgain) << error;
  }
}

TEST(ReadRetries, ElevenInARowAreAllowedTheTwelfthIsNot) {
  ReadRetries retries;
  for (int i = 1; i <= 11; ++i) EXPECT_TRUE(retries.Allow()) << i;
  EXPECT_FALSE(retries.Allow());
  EXPECT_FALSE(retries.Allow());
}

TEST(ReadRetries, ResetAllowsElevenMore) {
  ReadRetries retries;
  for (int i = 1; i <= 11; ++i) EXPECT_TRUE(retries.Allow());
  retries.Reset();
  for (int i = 1; i <= 11; ++i) EXPECT_TRUE(retries.Allow()) << i;
  EXPECT_FALSE(retries.Allow());
}

TEST(ReplyWithoutHandler, OverlongRequestIsTooLongWhateverItsCode) {
  for (const std::uint32_t code : {0U, 4U, 14U, 15U}) {
    EXPECT_EQ(ReplyWithoutHandler(true, code, true), ReplyCode::TooLong) << code;
    EXPECT_EQ(ReplyWithoutHandler(true, code, false), ReplyCode::TooLong) << code;
  }
}

TEST(ReplyWithoutHandler, CodesOutsideTwoToFourteenAreUnknown) {
  for (const std::uint32_t code : {0U, 1U, 15U, 16U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(ReplyWithoutHandler(false, code, true), ReplyCode::UnknownRequest) << code;
    EXPECT_EQ(ReplyWithoutHandler(false, code, false), ReplyCode::UnknownRequest) << code;
  }
}

TEST(ReplyWithoutHandler, CodesTwoToFourteenAreLeftToTheHandler) {
  for (std::uint32_t code = 2; code <= 14; ++code) {
    EXPECT_EQ(ReplyWithoutHandler(false, code, true), std::nullopt) << code;
  }
}

TEST(ReplyWithoutHandler, WithoutAHandlerARequestFails) {
  for (std::uint32_t code = 2; code <= 14; ++code) {
    EXPECT_EQ(ReplyWithoutHandler(false, code, false), ReplyCode::Failed) << code;
  }
}

}  // namespace
