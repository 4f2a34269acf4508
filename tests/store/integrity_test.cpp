// The integrity rules, one by one.

#include "store/integrity.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "tests/store/memory_file.h"
#include "tests/store/messages.h"

namespace StoreTest {
namespace {

// Three messages in a ring of four, oldest "a" in slot 0, under the server's own read access.
class Integrity : public testing::Test {
 protected:
  Integrity() : file(4) {
    file.slots[0].body = Message("a", At(12, 0));
    file.slots[1].body = Message("b", At(12, 1));
    file.slots[2].body = Message("c", At(12, 2));
    file.header.messageCount = 3;
    file.header.nextSlot = 3;
    file.header.readCount = 1;
  }

  IntegrityRule Check() { return FirstBrokenRule(file.header, file); }

  MemoryFile file;
};

TEST_F(Integrity, ASoundFilePasses) {
  EXPECT_EQ(Check(), IntegrityRule::NoneBroken);
}

TEST_F(Integrity, AnEmptyRingPassesWhateverItsSlotsHold) {
  file.header.messageCount = 0;
  file.slots[2].body.type = 99;
  EXPECT_EQ(Check(), IntegrityRule::NoneBroken);
}

TEST_F(Integrity, ANegativeMessageCountFails) {
  file.header.messageCount = -1;
  EXPECT_EQ(Check(), IntegrityRule::NotNegative);
}

TEST_F(Integrity, ANegativeCapacityFails) {
  file.header.maxMessages = std::numeric_limits<std::int32_t>::min();
  EXPECT_EQ(Check(), IntegrityRule::NotNegative);
}

TEST_F(Integrity, ANegativeNextSlotFails) {
  file.header.nextSlot = -1;
  EXPECT_EQ(Check(), IntegrityRule::NotNegative);
}

TEST_F(Integrity, MoreMessagesThanSlotsFail) {
  file.header.messageCount = 5;
  EXPECT_EQ(Check(), IntegrityRule::InsideRing);
}

TEST_F(Integrity, ANextSlotBehindTheRingFails) {
  file.header.nextSlot = 4;
  EXPECT_EQ(Check(), IntegrityRule::InsideRing);
}

TEST_F(Integrity, ACapacityOfZeroFails) {
  file.header.maxMessages = 0;
  file.header.messageCount = 0;
  file.header.nextSlot = 0;
  EXPECT_EQ(Check(), IntegrityRule::InsideRing);
}

TEST_F(Integrity, AnotherReaderFailsTheFile) {
  file.header.readCount = 2;
  EXPECT_EQ(Check(), IntegrityRule::OneReader);
  file.header.readCount = 0;
  EXPECT_EQ(Check(), IntegrityRule::OneReader);
}

TEST_F(Integrity, ASlotBehindTheMappedBytesFails) {
  file.header.maxMessages = 1000000;
  file.header.nextSlot = 1;
  EXPECT_EQ(Check(), IntegrityRule::SlotsInFile);
}

TEST_F(Integrity, AnOlderMessageInANewerSlotFails) {
  file.slots[2].body = Message("c", At(11, 0));
  EXPECT_EQ(Check(), IntegrityRule::NewestFirst);
}

TEST_F(Integrity, EqualTimesPass) {
  file.slots[1].body = Message("b", At(12, 0));
  EXPECT_EQ(Check(), IntegrityRule::NoneBroken);
}

TEST_F(Integrity, TheNewestMessageMayHaveTheLargestKeyThereIs) {
  LogMessageBody latest = Message("c");
  for (std::int16_t& word : latest.timestamp) word = 0;
  latest.timestamp[6] = -1;
  file.slots[2].body = latest;
  ASSERT_EQ(TimeKey(latest), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(Check(), IntegrityRule::NoneBroken);
}

TEST_F(Integrity, ATextWithoutAZeroFails) {
  CopyText(file.slots[0].body.text, std::string(kTextSize, 't'));
  EXPECT_EQ(Check(), IntegrityRule::TextsEnd);
}

TEST_F(Integrity, ASourceWithoutAZeroFails) {
  CopyText(file.slots[0].body.source, std::string(kTextSize, 's'));
  EXPECT_EQ(Check(), IntegrityRule::TextsEnd);
}

TEST_F(Integrity, TextsOf256CharactersPass) {
  CopyText(file.slots[0].body.source, std::string(kTextSize - 1, 's'));
  CopyText(file.slots[0].body.text, std::string(kTextSize - 1, 't'));
  EXPECT_EQ(Check(), IntegrityRule::NoneBroken);
}

TEST_F(Integrity, ATypeOfFourAndMoreFails) {
  file.slots[1].body.type = 3;
  EXPECT_EQ(Check(), IntegrityRule::NoneBroken);
  file.slots[1].body.type = 4;
  EXPECT_EQ(Check(), IntegrityRule::KnownType);
  file.slots[1].body.type = 0x80000000U;
  EXPECT_EQ(Check(), IntegrityRule::KnownType);
}

TEST_F(Integrity, TheWalkGoesRoundTheRing) {
  // Newest in slot 0, then 3, 2, 1.
  file.slots[1].body = Message("a", At(12, 0));
  file.slots[2].body = Message("b", At(12, 1));
  file.slots[3].body = Message("c", At(12, 2));
  file.slots[0].body = Message("d", At(12, 3));
  file.header.messageCount = 4;
  file.header.nextSlot = 1;
  EXPECT_EQ(Check(), IntegrityRule::NoneBroken);
  file.slots[3].body = Message("c", At(12, 4));
  EXPECT_EQ(Check(), IntegrityRule::NewestFirst);
}

TEST_F(Integrity, TheWalkStopsAtTheFirstBadMessage) {
  file.slots[2].body.type = 7;
  CopyText(file.slots[1].body.text, std::string(kTextSize, 't'));
  EXPECT_EQ(Check(), IntegrityRule::KnownType);
}

TEST_F(Integrity, ARingOfOneSlotPasses) {
  MemoryFile single(1);
  single.slots[0].body = Message("a", At(12, 0));
  single.header.messageCount = 1;
  single.header.nextSlot = 0;
  single.header.readCount = 1;
  EXPECT_EQ(FirstBrokenRule(single.header, single), IntegrityRule::NoneBroken);
}

}  // namespace
}  // namespace StoreTest
