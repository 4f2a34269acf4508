// The search for the best chain, compared with the simplest one: each message of a file against all others.

#include "client/file/slot_chain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "client/file/message_shape.h"
#include "tests/client/file/damaged_files.h"

namespace {

using TamLogClient::BestChain;
using TamLogClient::FindMessage;
using TamLogClient::kNeededOfSlot;
using TamLogClient::kSlotSize;
using TamLogClient::kTimeOffset;
using TamLogClient::LogFileImage;
using TamLogTest::Pick;
using TamLogTest::Random;

constexpr std::uint64_t kApart = kNeededOfSlot - kTimeOffset - 1;

struct Found {
  std::uint64_t offset = 0;
  int score = 0;
};

// Messages without texts, which may begin inside of each other: only date and type differ from zeros.
class SlotChainTest : public testing::Test {
 protected:
  void Put(std::uint64_t offset) {
    constexpr std::int16_t kTime[8] = {2026, 1, 1, 0, 0, 0, 0, 0};
    bytes.resize(std::max<std::size_t>(bytes.size(), offset + kSlotSize));
    std::memcpy(&bytes[offset + kTimeOffset], &kTime, sizeof(kTime));
  }

  std::vector<Found> AllMessages() const {
    std::vector<Found> all;
    std::size_t at = FindMessage(bytes, 0, bytes.size());
    for (; at != std::string::npos; at = FindMessage(bytes, at + 1, bytes.size())) {
      if (!all.empty() && at < all.back().offset + kApart) all.back().score = 1;
      all.push_back({at, 4});
    }
    return all;
  }

  // The highest score of all chains whose slots begin on the grid of `start`.
  int BestScore(std::uint64_t start) const {
    const auto all = AllMessages();
    std::vector<int> best;
    int highest = 0;
    for (std::size_t i = 0; i < all.size(); ++i) {
      const auto isOnGrid = [&](std::uint64_t other) {
        return (all[i].offset + kSlotSize - other % kSlotSize) % kSlotSize == 0;
      };
      int before = isOnGrid(start) ? 0 : -1;
      for (std::size_t j = 0; j < i; ++j) {
        if (all[j].offset + kApart > all[i].offset) continue;
        before = std::max(before, best[j] - (isOnGrid(all[j].offset) ? 0 : 1));
      }
      best.push_back(before + all[i].score);
      highest = std::max(highest, best.back());
    }
    return highest;
  }

  // The score of the slots that the search finds, from `at` to the end, chain after chain.
  int ScoreOfSearch(std::uint64_t at) const {
    const LogFileImage image(bytes);
    const auto all = AllMessages();
    int score = 0;
    while (at < bytes.size()) {
      const auto chain = BestChain(image, at, at);
      EXPECT_GT(chain.end, at);
      while (at < chain.end) {
        const auto next = std::upper_bound(chain.breaks.begin(), chain.breaks.end(), at);
        const bool leaves = next != chain.breaks.end() && *next < at + kSlotSize;
        const auto here =
            std::find_if(all.begin(), all.end(), [at](const Found& found) { return found.offset == at; });
        if (here != all.end() && (!leaves || *next >= at + kApart)) score += here->score;
        score -= leaves ? 1 : 0;
        at = leaves ? *next : at + kSlotSize;
      }
    }
    return score;
  }

  std::vector<std::uint64_t> Breaks(std::uint64_t at) const {
    return BestChain(LogFileImage(bytes), at, at).breaks;
  }

  std::string bytes;
};

TEST_F(SlotChainTest, NoChainIsBetter) {
  for (unsigned seed = 0; seed < 4000; ++seed) {
    Random random(seed);
    bytes.clear();
    const std::size_t runs = 1 + Pick(random, 7);
    for (std::size_t run = 0, at = Pick(random, 3) * 100; run < runs; ++run) {
      for (std::size_t i = 1 + Pick(random, 4); i > 0; --i, at += kSlotSize) Put(at);
      at += Pick(random, 3) == 0 ? Pick(random, 4) * kSlotSize : Pick(random, 3 * kSlotSize);
      at -= std::min(at, Pick(random, 2) * Pick(random, 3 * kSlotSize));
    }
    ASSERT_EQ(ScoreOfSearch(0), BestScore(0)) << seed;
  }
}

TEST_F(SlotChainTest, OneMessageBetweenTwoRunsIsTaken) {
  for (const std::uint64_t at : {0U, 1U, 4U}) Put(at * kSlotSize);
  Put(2 * kSlotSize + 300);
  EXPECT_EQ(Breaks(kSlotSize), (std::vector<std::uint64_t>{2 * kSlotSize + 300, 4 * kSlotSize}));
}

TEST_F(SlotChainTest, LastMessageWinsAgainstTheOneInWhichItBegins) {
  Put(0);
  Put(kSlotSize - 30);
  EXPECT_EQ(Breaks(0), std::vector<std::uint64_t>{kSlotSize - 30});
}

TEST_F(SlotChainTest, MessagesInsideOfOthersDoNotMoveASlotThatGoesOn) {
  for (const std::uint64_t at : {0U, 1U, 2U, 3U}) Put(at * kSlotSize);
  for (const std::uint64_t at : {0U, 1U, 2U}) Put(at * kSlotSize + 300);
  EXPECT_EQ(Breaks(0), std::vector<std::uint64_t>{});
}

}  // namespace
