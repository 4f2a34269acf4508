// The header's arithmetic, also on headers that another process has damaged.

#include "store/ring.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kSmallest = std::numeric_limits<std::int32_t>::min();

LogFileHeader Ring(std::int32_t maxMessages, std::int32_t messageCount, std::int32_t nextSlot) {
  LogFileHeader header = {};
  header.maxMessages = maxMessages;
  header.messageCount = messageCount;
  header.nextSlot = nextSlot;
  return header;
}

TEST(Ring, AReformatWritesItsFiveFieldsAndLeavesTheOthers) {
  LogFileHeader header = Ring(10, 7, 3);
  header.readCount = 4;
  header.serverRunning = 1;
  header.padding1[1] = 9;
  header.padding2[2] = 8;
  header.changeCount = header.rewriteCount = header.nextSequence = 99;
  ReformatRing(header);
  EXPECT_EQ(header.messageCount, 0);
  EXPECT_EQ(header.nextSlot, 0);
  EXPECT_EQ(header.changeCount, 1U);
  EXPECT_EQ(header.rewriteCount, 1U);
  EXPECT_EQ(header.nextSequence, 0U);
  EXPECT_EQ(header.readCount, 4);
  EXPECT_EQ(header.serverRunning, 1);
  EXPECT_EQ(header.maxMessages, 10);
  EXPECT_EQ(header.padding1[1], 9);
  EXPECT_EQ(header.padding2[2], 8);
}

TEST(Ring, AClearKeepsCountingTheSequence) {
  LogFileHeader header = Ring(10, 7, 3);
  header.nextSequence = 99;
  header.rewriteCount = 5;
  header.changeCount = 6;
  ClearRing(header);
  EXPECT_EQ(header.messageCount, 0);
  EXPECT_EQ(header.nextSlot, 0);
  EXPECT_EQ(header.nextSequence, 99U);
  EXPECT_EQ(header.rewriteCount, 6U);
  EXPECT_EQ(header.changeCount, 6U);
}

TEST(Ring, TheNewestMessageLiesBeforeNextSlotAndTheWalkGoesRound) {
  const LogFileHeader header = Ring(4, 4, 1);
  EXPECT_EQ(SlotFromNewest(header, 0), 0);
  EXPECT_EQ(SlotFromNewest(header, 1), 3);
  EXPECT_EQ(SlotFromNewest(header, 3), 1);
}

TEST(Ring, ASlotOfADamagedHeaderLiesOutsideInsteadOfOverflowing) {
  EXPECT_LT(SlotFromNewest(Ring(kSmallest, kLargest, kSmallest), kLargest - 1), 0);
  EXPECT_LT(SlotFromNewest(Ring(4, 100, 1), 90), 0);
}

TEST(Ring, IsInsideTheFileWhenAllItsMessagesAre) {
  EXPECT_TRUE(RingIsInside(Ring(10, 10, 9), 10));
  EXPECT_TRUE(RingIsInside(Ring(10, 3, 2), 10));
  EXPECT_FALSE(RingIsInside(Ring(10, 3, 2), 9));
  EXPECT_FALSE(RingIsInside(Ring(kLargest, 2, 1), 10));
  // Before the file grows.
  EXPECT_TRUE(RingIsInside(Ring(20, 3, 3), 3));
  EXPECT_FALSE(RingIsInside(Ring(20, 3, 4), 3));
}

TEST(Ring, IsInsideTheFileWhenItIsEmptyWhateverItsCapacity) {
  for (const std::int32_t capacity : {kSmallest, -1, 0, 1, 10, kLargest}) {
    EXPECT_TRUE(RingIsInside(Ring(capacity, 0, 0), 10)) << capacity;
  }
}

TEST(Ring, IsNotInsideTheFileWithAnIndexOutsideTheRing) {
  for (const std::int32_t outside : {kSmallest, -1, 11, kLargest}) {
    EXPECT_FALSE(RingIsInside(Ring(10, outside, 2), 10)) << outside;
    EXPECT_FALSE(RingIsInside(Ring(10, 2, outside), 10)) << outside;
    EXPECT_FALSE(RingIsInside(Ring(10, 0, outside), 10)) << outside;
  }
  EXPECT_FALSE(RingIsInside(Ring(10, 2, 10), 10));
  EXPECT_FALSE(RingIsInside(Ring(kSmallest, 1, 0), 10));
}

TEST(Ring, ALargerCapacityPutsTheNextMessageAfterTheOthers) {
  LogFileHeader header = Ring(5, 3, 1);
  SetRingCapacity(header, 10);
  EXPECT_EQ(header.maxMessages, 10);
  EXPECT_EQ(header.messageCount, 3);
  EXPECT_EQ(header.nextSlot, 3);
}

TEST(Ring, ASmallerCapacityFillsTheRing) {
  LogFileHeader header = Ring(5, 5, 1);
  SetRingCapacity(header, 2);
  EXPECT_EQ(header.messageCount, 2);
  EXPECT_EQ(header.nextSlot, 0);
}

TEST(Ring, ACapacityOfZeroLeavesAnEmptyRing) {
  LogFileHeader header = Ring(5, 5, 1);
  SetRingCapacity(header, 0);
  EXPECT_EQ(header.maxMessages, 0);
  EXPECT_EQ(header.messageCount, 0);
  EXPECT_EQ(header.nextSlot, 0);
}

TEST(Ring, ACapacityOf2To31AndMoreIsNegativeInTheHeader) {
  LogFileHeader header = Ring(5, 5, 1);
  SetRingCapacity(header, 0x80000000U);
  EXPECT_EQ(header.maxMessages, kSmallest);
  EXPECT_EQ(header.messageCount, kSmallest);
  EXPECT_EQ(header.nextSlot, 0);
}

TEST(Ring, ARewindTakesMessagesBackAcrossTheEndOfTheRing) {
  LogFileHeader header = Ring(5, 5, 1);
  header.rewriteCount = 7;
  RewindRing(header, 3);
  EXPECT_EQ(header.messageCount, 2);
  EXPECT_EQ(header.nextSlot, 3);
  EXPECT_EQ(header.rewriteCount, 8U);
}

TEST(Ring, ARewindByNothingIsNoRewrite) {
  LogFileHeader header = Ring(5, 5, 1);
  RewindRing(header, 0);
  EXPECT_EQ(header.messageCount, 5);
  EXPECT_EQ(header.nextSlot, 1);
  EXPECT_EQ(header.rewriteCount, 0U);
}

TEST(Ring, ARewindOfADamagedHeaderEndsInsideTheRing) {
  LogFileHeader header = Ring(5, kSmallest, kSmallest);
  RewindRing(header, 3);
  EXPECT_GE(header.nextSlot, 0);
  EXPECT_LT(header.nextSlot, 5);
  header = Ring(1, 0, kSmallest);
  RewindRing(header, kLargest);
  EXPECT_EQ(header.nextSlot, 0);
}

TEST(Ring, AppendingFillsTheRingAndGoesRound) {
  LogFileHeader header = Ring(2, 0, 0);
  EXPECT_EQ(AppendToRing(header), 0);
  EXPECT_EQ(AppendToRing(header), 1);
  EXPECT_EQ(header.messageCount, 2);
  EXPECT_EQ(header.nextSlot, 0);
  EXPECT_EQ(AppendToRing(header), 0);
  EXPECT_EQ(header.messageCount, 2);
  EXPECT_EQ(header.nextSlot, 1);
}

TEST(Ring, AppendingToADamagedHeaderDoesNotOverflow) {
  LogFileHeader header = Ring(5, kLargest, kLargest);
  EXPECT_EQ(AppendToRing(header), kLargest);
  EXPECT_EQ(header.messageCount, 5);
  EXPECT_LT(header.nextSlot, 5);
}

TEST(Ring, InARingOfOneSlotTheNextSlotIsAlwaysZero) {
  LogFileHeader header = Ring(1, 0, 0);
  EXPECT_EQ(AppendToRing(header), 0);
  EXPECT_EQ(header.nextSlot, 0);
  RewindRing(header, 1);
  EXPECT_EQ(header.nextSlot, 0);
  EXPECT_EQ(header.messageCount, 0);
}

}  // namespace
