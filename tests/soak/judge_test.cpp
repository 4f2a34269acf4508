// Tests each verdict, in particular those that fail a run.

#include "tests/soak/judge.h"

#include <gtest/gtest.h>

using namespace Soak;

namespace {

constexpr std::uint64_t kKey = 1000;

Sent Taken(Moment sent, Moment answered) {
  return {.id = {.sender = 3, .number = 5}, .sent = sent, .answered = answered, .key = kKey};
}

Sent WithOutcome(Sent message, Outcome outcome) {
  message.outcome = outcome;
  return message;
}

// Returns a copy that took one unit of time.
Look At(Moment begin, std::uint64_t changeCount, std::uint32_t opening = 1) {
  return {.begin = begin, .end = begin + 1, .changeCount = changeCount, .opening = opening};
}

Look Full(Look look, std::uint64_t oldestKey, std::uint64_t rewriteCount = 0) {
  look.full = true;
  look.oldestKey = oldestKey;
  look.rewriteCount = rewriteCount;
  return look;
}

FilterState DropEverything() {
  return {.includes = {}, .excludes = {""}};
}

}  // namespace

TEST(Judge, WhatWasSeenIsStored) {
  const Judge judge({At(20, 1)}, {}, {});
  EXPECT_EQ(judge.Of(Taken(10, 11), true), Verdict::Stored);
  EXPECT_EQ(judge.Of(WithOutcome(Taken(10, 11), Outcome::Unanswered), true), Verdict::Stored);
}

TEST(Judge, WhatIsMissingTwoFlushesAfterItWasTakenIsLost) {
  const Judge judge({At(5, 1), At(20, 2), At(30, 3), At(40, 4)}, {}, {});
  EXPECT_EQ(judge.Of(Taken(10, 11), false), Verdict::Lost);
}

TEST(Judge, WhatNobodyLookedForIsLost) {
  EXPECT_EQ(Judge({At(5, 1)}, {}, {}).Of(Taken(10, 11), false), Verdict::Lost);
  EXPECT_EQ(Judge({At(20, 2), At(30, 3)}, {}, {}).Of(Taken(10, 11), false), Verdict::Lost);
  EXPECT_EQ(Judge({At(20, 2), At(30, 9, 2)}, {}, {}).Of(Taken(10, 11), false), Verdict::Lost);
}

TEST(Judge, ARestartExcusesWhatWasPendingAndNothingThatHadToBeWrittenBefore) {
  const std::vector<Look> looks{At(5, 1), At(20, 2), At(30, 4), At(60, 4, 2), At(70, 6, 2)};
  const Judge judge(looks, {{Interruption::Kind::Restart, 40, 50}}, {});
  EXPECT_EQ(judge.Of(Taken(10, 11), false), Verdict::Lost);
  EXPECT_EQ(judge.Of(Taken(32, 33), false), Verdict::PendingAtRestart);
  EXPECT_EQ(judge.Of(Taken(25, 26), false), Verdict::PendingAtRestart);
  EXPECT_EQ(judge.Of(Taken(45, 46), false), Verdict::PendingAtRestart);
  EXPECT_EQ(judge.Of(Taken(51, 52), false), Verdict::Lost);
}

TEST(Judge, AClearExcusesWhatNobodyCouldHaveSeenBefore) {
  const std::vector<Look> looks{At(5, 1), At(20, 2), At(30, 4), At(50, 5), At(60, 7), At(70, 9)};
  const Judge judge(looks, {{Interruption::Kind::Clear, 40, 42}}, {});
  EXPECT_EQ(judge.Of(Taken(35, 36), false), Verdict::Cleared);
  EXPECT_EQ(judge.Of(Taken(41, 43), false), Verdict::Cleared);
  EXPECT_EQ(judge.Of(Taken(10, 11), false), Verdict::Lost);
  EXPECT_EQ(judge.Of(Taken(43, 44), false), Verdict::Lost);
}

TEST(Judge, AFullRingExcusesOnlyWhatIsOlderThanAllOfIt) {
  const auto with = [](std::uint64_t oldestKey) {
    return Judge({At(20, 2), Full(At(30, 4), oldestKey)}, {}, {}).Of(Taken(10, 11), false);
  };
  EXPECT_EQ(with(kKey), Verdict::Overwritten);
  EXPECT_EQ(with(kKey - 1), Verdict::Lost);
}

TEST(Judge, ARingThatWasWrittenAnewMayHaveLostItsNewest) {
  const auto with = [](std::uint64_t rewriteCount) {
    return Judge({At(20, 2), Full(At(30, 4), kKey - 1, rewriteCount)}, {}, {}).Of(Taken(10, 11), false);
  };
  EXPECT_EQ(with(1), Verdict::OverwrittenByBurst);
  EXPECT_EQ(with(0), Verdict::Lost);
}

TEST(Judge, FiltersThatStandStillDecideAndThoseThatChangeDoNot) {
  const Judge judge({At(100, 2), At(110, 4)}, {}, {{10, 20, DropEverything()}, {40, 50, {}}});
  EXPECT_EQ(judge.Of(Taken(5, 6), false), Verdict::Lost);
  EXPECT_EQ(judge.Of(Taken(5, 10), false), Verdict::FiltersChanging);
  EXPECT_EQ(judge.Of(Taken(15, 16), false), Verdict::FiltersChanging);
  EXPECT_EQ(judge.Of(Taken(21, 39), false), Verdict::Filtered);
  EXPECT_EQ(judge.Of(Taken(21, 39), true), Verdict::StoredThoughFiltered);
  EXPECT_EQ(judge.Of(Taken(21, 40), true), Verdict::Stored);
  EXPECT_EQ(judge.Of(Taken(21, 60), false), Verdict::FiltersChanging);
  EXPECT_EQ(judge.Of(Taken(51, 60), false), Verdict::Lost);
}

TEST(Judge, WhatWasRefusedMustNotBeStoredAndWhatWasNotAnsweredMay) {
  const Judge judge({At(20, 2), At(30, 4)}, {}, {});
  EXPECT_EQ(judge.Of(WithOutcome(Taken(10, 11), Outcome::Refused), false), Verdict::Refused);
  EXPECT_EQ(judge.Of(WithOutcome(Taken(10, 11), Outcome::Refused), true), Verdict::StoredThoughRefused);
  EXPECT_EQ(judge.Of(WithOutcome(Taken(10, 11), Outcome::Unanswered), false), Verdict::Unanswered);
}

TEST(Account, AddsUpAndNamesFailuresOnlyWhenThereAreSome) {
  Account account;
  account.Add(Verdict::Stored);
  account.Add(Verdict::Stored);
  account.Add(Verdict::Cleared);
  EXPECT_EQ(account.Failures(), 0U);
  EXPECT_EQ(account.Uncertain(), 1U);
  EXPECT_EQ(
      account.Text(),
      "3 sent = 2 stored + 0 filtered + 0 overwritten + 0 overwritten by bursts + 0 refused + 0 pending "
      "at restarts + 1 cleared unseen + 0 not stored while filters changed + 0 unanswered and not "
      "stored");
  account.Add(Verdict::Lost);
  EXPECT_EQ(account.Failures(), 1U);
  EXPECT_NE(account.Text().find(" + 1 LOST"), std::string::npos);
}

TEST(SoakMessage, IsRecognisedAndAnyChangedByteIsNoticed) {
  for (const std::uint32_t number : {0U, 1U, 250U, 251U, 123456U}) {
    const MessageId id{.sender = kDriverSender, .number = number};
    LogMessageBody body = MakeMessage(id);
    ASSERT_EQ(Identify(body), id);
    for (std::size_t i = 0; i < sizeof(body); ++i) {
      if (i >= offsetof(LogMessageBody, timestamp) && i < offsetof(LogMessageBody, type)) continue;
      auto* const byte = reinterpret_cast<unsigned char*>(&body) + i;
      *byte ^= 1U;
      EXPECT_NE(Identify(body), id) << i;
      *byte ^= 1U;
    }
  }
}

TEST(FilterState, TakesTheShorterOfFilterAndSourceForABeginning) {
  const MessageId camera{.sender = 0, .number = 1};  // "Camera left", type 0
  ASSERT_STREQ(SourceOf(camera), "Camera left");
  EXPECT_TRUE((FilterState{}).Keeps(camera));
  EXPECT_FALSE((FilterState{.includes = {}, .excludes = {"CAM"}}).Keeps(camera));
  EXPECT_FALSE((FilterState{.includes = {}, .excludes = {"camera left 2"}}).Keeps(camera));
  EXPECT_TRUE((FilterState{.includes = {}, .excludes = {"camera right"}}).Keeps(camera));
  EXPECT_TRUE((FilterState{.includes = {"cam"}, .excludes = {"cam"}}).Keeps(camera));
  EXPECT_FALSE((FilterState{.includes = {"stage"}, .excludes = {}}).Keeps(camera));
  EXPECT_FALSE((FilterState{.includes = {}, .excludes = {}, .types = 0xE}).Keeps(camera));
}

TEST(SeenMessages, CountsEachOnce) {
  SeenMessages seen;
  const MessageId id{.sender = 7, .number = 5000};
  EXPECT_FALSE(seen.Has(id));
  EXPECT_TRUE(seen.Add(id));
  EXPECT_FALSE(seen.Add(id));
  EXPECT_TRUE(seen.Has(id));
  EXPECT_EQ(seen.Count(), 1U);
}
