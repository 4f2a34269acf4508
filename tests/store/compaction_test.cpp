// Bringing the messages of a ring to the front in place, against a copy of all of them.

#include "store/compaction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/store/memory_file.h"
#include "tests/store/messages.h"

namespace StoreTest {
namespace {

// The slots of a file in memory; the nth write fails.
struct Slots {
  LogMessage ReadSlot(std::int64_t index) const { return slots.at(static_cast<std::size_t>(index)); }
  void WriteSlot(std::int64_t index, const LogMessage& message) {
    if (--writesLeft == 0) throw std::runtime_error("write");
    slots.at(static_cast<std::size_t>(index)) = message;
  }

  std::vector<LogMessage>& slots;
  int writesLeft = -1;
};

// A ring whose messages are "m0", the oldest, "m1", ... and whose other slots are "unused".
MemoryFile Ring(std::int32_t capacity, std::int32_t count, std::int32_t nextSlot) {
  MemoryFile file(capacity);
  file.header.messageCount = count;
  file.header.nextSlot = nextSlot;
  for (LogMessage& slot : file.slots) slot.body = Message("unused");
  for (std::int32_t i = 0; i < count; ++i) {
    LogMessage& slot = file.slots[static_cast<std::size_t>(SlotFromNewest(file.header, count - 1 - i))];
    slot.body = Message("m" + std::to_string(i));
    slot.sequence = static_cast<std::uint64_t>(i);
  }
  return file;
}

// What the slots hold when all messages are copied first.
std::vector<std::string> WithACopy(const MemoryFile& file, std::int64_t kept) {
  std::vector<std::string> slots = file.Slots();
  const std::vector<std::string> newestFirst = file.Texts();
  std::copy_n(newestFirst.begin(), kept, slots.begin());
  return slots;
}

TEST(Compaction, OfEveryRingUpToNineSlotsLeavesWhatACopyOfAllMessagesLeaves) {
  for (std::int32_t capacity = 1; capacity <= 9; ++capacity) {
    for (std::int32_t count = 0; count <= capacity; ++count) {
      for (std::int32_t nextSlot = 0; nextSlot < capacity; ++nextSlot) {
        for (std::int32_t kept = 0; kept <= count; ++kept) {
          SCOPED_TRACE(testing::Message() << capacity << ' ' << count << ' ' << nextSlot << ' ' << kept);
          MemoryFile file = Ring(capacity, count, nextSlot);
          const std::vector<std::string> expected = WithACopy(file, kept);
          Slots slots{.slots = file.slots};
          MoveNewestToFront(file.header, kept, slots);
          ASSERT_EQ(file.Slots(), expected);
        }
      }
    }
  }
}

TEST(Compaction, MovesEachMessageWithItsNumber) {
  MemoryFile file = Ring(4, 3, 1);
  Slots slots{.slots = file.slots};
  MoveNewestToFront(file.header, 3, slots);
  EXPECT_EQ(file.slots[0].sequence, 2U);
  EXPECT_EQ(file.slots[1].sequence, 1U);
  EXPECT_EQ(file.slots[2].sequence, 0U);
}

TEST(Compaction, ThatFailsHasLostAtMostOneOfTheKeptMessages) {
  constexpr std::int32_t kCount = 7;
  constexpr std::int32_t kKept = 5;
  int failures = 0;
  for (int failing = 1;; ++failing) {
    SCOPED_TRACE(failing);
    MemoryFile file = Ring(8, kCount, 3);
    Slots slots{.slots = file.slots, .writesLeft = failing};
    try {
      MoveNewestToFront(file.header, kKept, slots);
      break;
    } catch (const std::runtime_error&) {
      ++failures;
    }
    const std::vector<std::string> left = file.Slots();
    int lost = 0;
    for (int i = kCount - kKept; i < kCount; ++i) {
      if (std::find(left.begin(), left.end(), "m" + std::to_string(i)) == left.end()) ++lost;
    }
    EXPECT_LE(lost, 1);
  }
  EXPECT_GE(failures, 4);
}

TEST(Compaction, OfAHeaderThatNamesSlotsBeyondTheFileIsRefusedByTheSlots) {
  MemoryFile file = Ring(4, 4, 0);
  file.header.maxMessages = 400;
  Slots slots{.slots = file.slots};
  EXPECT_THROW(MoveNewestToFront(file.header, 4, slots), std::out_of_range);
}

}  // namespace
}  // namespace StoreTest
