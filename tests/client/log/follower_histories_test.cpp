// Judges the follower over random histories for about a minute under the sanitizers and some seconds under
// Wine, and prints the table of docs/reliability.md. TAMLOG_HISTORY_SECONDS in the environment sets another
// time for all kinds together; with TAMLOG_HISTORY_SEEDS there are so many histories of each kind whatever
// time they take, from the seed TAMLOG_HISTORY_FIRST on (scripts/judge-following.sh).

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/client/log/follower_judge.h"

namespace {

using TamLogTest::FollowerJudge;
using TamLogTest::HistoryKind;
using TamLogTest::HistoryKinds;
using TamLogTest::JudgeCounts;

#ifdef _WIN32
constexpr int kSeconds = 6;
#else
constexpr int kSeconds = 60;
#endif
constexpr int kFewest = 50;

int NumberFrom(const char* variable, int otherwise) {
  const char* const chosen = std::getenv(variable);
  return chosen == nullptr ? otherwise : std::atoi(chosen);
}

class FollowerHistories : public testing::TestWithParam<HistoryKind> {};

TEST_P(FollowerHistories, EveryMessageOnceOrItsLossReported) {
  const int seeds = NumberFrom("TAMLOG_HISTORY_SEEDS", 0);
  const int seconds = seeds > 0 ? 0 : NumberFrom("TAMLOG_HISTORY_SECONDS", kSeconds);
  const int fewest = seeds > 0 ? seeds : kFewest;
  const auto end = std::chrono::steady_clock::now() +
                   std::chrono::milliseconds(seconds * 1000 / static_cast<int>(HistoryKinds().size()));
  const auto first = static_cast<std::uint32_t>(NumberFrom("TAMLOG_HISTORY_FIRST", 0));
  JudgeCounts counts;
  for (int i = 0; i < fewest || std::chrono::steady_clock::now() < end; ++i) {
    const std::uint32_t seed = first + static_cast<std::uint32_t>(i);
    std::string story;
    counts.Add(FollowerJudge(GetParam(), seed).Run(story));
    ASSERT_EQ(story, "") << "seed " << seed;
  }
  EXPECT_EQ(counts.Failures(), 0U);
  EXPECT_GT(counts.returned, 0U);
  EXPECT_GT(counts.exact, 0U) << "counts by the counters are never made";
  EXPECT_LT(counts.needless, counts.visits / 3) << "a follower that always reports a possible loss is no use";
  // After a restart or a resume much is unknown.
  if (GetParam().restarts == TamLogTest::Restarts::None) {
    EXPECT_LT(counts.needless - counts.needlessInFile, counts.possible / 6);
  }
  std::string row = std::string("| ") + GetParam().name + " |";
  for (const std::uint64_t count :
       {counts.histories, counts.visits, counts.returned, counts.lost, counts.exact, counts.possible,
        counts.unbounded, counts.needless, counts.needlessInFile}) {
    row += " " + std::to_string(count) + " |";
  }
  std::puts(row.c_str());
}

INSTANTIATE_TEST_SUITE_P(Kinds, FollowerHistories, testing::ValuesIn(HistoryKinds()),
                         [](const testing::TestParamInfo<HistoryKind>& kind) {
                           std::string name;
                           for (const char* each = kind.param.name; *each != '\0'; ++each) {
                             if (*each != ' ' && *each != ',') name += *each;
                           }
                           return name;
                         });

}  // namespace
