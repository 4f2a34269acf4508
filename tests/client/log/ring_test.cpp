#include "client/log/ring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

namespace {

using TamLogClient::FallingStretch;
using TamLogClient::HoldsMessage;
using TamLogClient::NewestRuns;
using TamLogClient::RingFits;
using TamLogClient::RingIsSound;
using TamLogClient::RingSlots;
using TamLogClient::SlotAt;
using TamLogClient::SlotRun;

using Slots = std::vector<std::uint32_t>;

LogFileHeader Header(std::int32_t capacity, std::int32_t count, std::int32_t next) {
  LogFileHeader header{};
  header.maxMessages = capacity;
  header.messageCount = count;
  header.nextSlot = next;
  return header;
}

// The slots of the newest `count` messages, walked back from the next slot one by one.
Slots WalkBack(const LogFileHeader& header, std::int32_t count) {
  Slots slots;
  std::int32_t slot = header.nextSlot;
  for (std::int32_t i = 0; i < count; ++i) {
    slot = slot == 0 ? header.maxMessages - 1 : slot - 1;
    slots.push_back(static_cast<std::uint32_t>(slot));
  }
  std::reverse(slots.begin(), slots.end());
  return slots;
}

template <typename Check>
void ForEachSmallRing(Check check) {
  for (std::int32_t capacity = 1; capacity <= 5; ++capacity) {
    for (std::int32_t count = 0; count <= capacity; ++count) {
      for (std::int32_t next = 0; next < capacity; ++next) {
        SCOPED_TRACE(testing::Message() << capacity << " " << count << " " << next);
        check(Header(capacity, count, next));
      }
    }
  }
}

TEST(Ring, SlotsAreThoseBeforeTheNextOne) {
  ForEachSmallRing([](const LogFileHeader& header) {
    ASSERT_TRUE(RingIsSound(header));
    const Slots expected = WalkBack(header, header.messageCount);
    EXPECT_EQ(RingSlots(header, 5), expected);
    for (std::uint32_t position = 0; position < expected.size(); ++position)
      EXPECT_EQ(SlotAt(header, position), expected[position]);
    for (std::uint32_t slot = 0; slot < 7; ++slot)
      EXPECT_EQ(HoldsMessage(header, slot), std::count(expected.begin(), expected.end(), slot) == 1) << slot;
  });
}

TEST(Ring, NewestRunsAreTheEndOfTheRing) {
  ForEachSmallRing([](const LogFileHeader& header) {
    for (std::int32_t count = 0; count <= header.messageCount; ++count) {
      Slots slots;
      for (const SlotRun& run : NewestRuns(header, count)) {
        EXPECT_LE(run.begin, run.end);
        for (std::int64_t slot = run.begin; slot < run.end; ++slot)
          slots.push_back(static_cast<std::uint32_t>(slot));
      }
      EXPECT_EQ(slots, WalkBack(header, count));
    }
  });
}

TEST(Ring, SlotsThatAreNotThereAreLeftOut) {
  ForEachSmallRing([](const LogFileHeader& header) {
    for (std::uint32_t there = 0; there <= 6; ++there) {
      Slots expected = WalkBack(header, header.messageCount);
      std::erase_if(expected, [there](std::uint32_t slot) { return slot >= there; });
      EXPECT_EQ(RingSlots(header, there), expected) << there;
    }
  });
  constexpr std::int32_t kHuge = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(RingSlots(Header(kHuge, kHuge, 1), 3), (Slots{1, 2, 0}));
}

TEST(Ring, ExactlyTheSoundHeadersAreAccepted) {
  for (std::int32_t capacity = -1; capacity <= 3; ++capacity) {
    for (std::int32_t count = -1; count <= 4; ++count) {
      for (std::int32_t next = -1; next <= 4; ++next) {
        const bool sound = capacity > 0 && 0 <= count && count <= capacity && 0 <= next && next < capacity;
        const LogFileHeader header = Header(capacity, count, next);
        EXPECT_EQ(RingIsSound(header), sound) << capacity << " " << count << " " << next;
        for (std::uint64_t there = 0; there <= 4; ++there) {
          EXPECT_EQ(RingFits(header, there), sound && there >= static_cast<std::uint64_t>(capacity))
              << capacity << " " << count << " " << next << " of " << there;
        }
      }
    }
  }
}

TEST(Ring, StretchThatFallsEndsWithTheFirstRise) {
  EXPECT_EQ(FallingStretch({}), 0U);
  EXPECT_EQ(FallingStretch({5}), 0U);
  EXPECT_EQ(FallingStretch({1, 2, 1}), 0U);
  EXPECT_EQ(FallingStretch({4, 4, 4, 5}), 0U) << "equal times fall nowhere";
  EXPECT_EQ(FallingStretch({3, 2}), 2U);
  EXPECT_EQ(FallingStretch({3, 3, 2, 2, 4, 1}), 4U);
  EXPECT_EQ(FallingStretch({9, 7, 5}), 3U);
}

TEST(Ring, EmptyHeaderHoldsNothing) {
  EXPECT_FALSE(RingIsSound({}));
  EXPECT_FALSE(HoldsMessage({}, 0));
}

}  // namespace
