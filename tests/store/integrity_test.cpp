// The integrity rules, one by one.

#include "store/integrity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

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

TEST_F(Integrity, ANextSlotBeyondTheRingFails) {
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

TEST_F(Integrity, ASlotBeyondTheMappedBytesFails) {
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

TEST_F(Integrity, BytesAfterTheEndOfATextDoNotMatter) {
  for (std::size_t end = 0; end < kTextSize; ++end) {
    std::string text(kTextSize, '\xff');
    text[end] = '\0';
    CopyText(file.slots[0].body.source, text);
    CopyText(file.slots[0].body.text, text);
    EXPECT_EQ(Check(), IntegrityRule::NoneBroken) << end;
  }
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

// The same rules applied one message and one byte at a time.
IntegrityRule PlainRule(const LogFileHeader& header, const MemoryFile& file) {
  if (header.messageCount < 0 || header.maxMessages < 0 || header.nextSlot < 0) {
    return IntegrityRule::NotNegative;
  }
  if (header.messageCount > header.maxMessages || header.nextSlot >= header.maxMessages) {
    return IntegrityRule::InsideRing;
  }
  if (header.readCount != 1) return IntegrityRule::OneReader;
  const auto ends = [](const char(&text)[kTextSize]) {
    return std::find(std::begin(text), std::end(text), '\0') != std::end(text);
  };
  std::uint64_t newerKey = std::numeric_limits<std::uint64_t>::max();
  for (std::int32_t i = 0; i < header.messageCount; ++i) {
    const std::int64_t slot = SlotFromNewest(header, i);
    if (!file.HasSlot(slot)) return IntegrityRule::SlotsInFile;
    const LogMessage& message = file.slots[static_cast<std::size_t>(slot)];
    const std::uint64_t key = TimeKey(message.body);
    if (key > newerKey) return IntegrityRule::NewestFirst;
    if (!ends(message.body.text) || !ends(message.body.source)) return IntegrityRule::TextsEnd;
    if (message.body.type >= kMessageTypes) return IntegrityRule::KnownType;
    newerKey = key;
  }
  return IntegrityRule::NoneBroken;
}

// A ring with a random number of messages and texts of any length, with at most one field damaged.
MemoryFile RandomFile(std::mt19937& random) {
  const auto below = [&random](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
  };
  const int capacity = 1 + below(below(4) == 0 ? 1500 : 40);
  MemoryFile file(capacity);
  file.header.readCount = 1;
  file.header.messageCount = below(3) == 0 ? capacity : below(capacity + 1);
  file.header.nextSlot = below(capacity);
  int second = 3000;
  for (std::int32_t i = 0; i < file.header.messageCount; ++i) {
    second -= below(3) == 0 ? 1 : 0;
    LogMessage& slot = file.slots[static_cast<std::size_t>(SlotFromNewest(file.header, i))];
    slot.body = From(
        std::string(static_cast<std::size_t>(below(257)), 's'),
        Message(std::string(static_cast<std::size_t>(below(257)), '\x80'), At(1, second / 60, second % 60)));
  }
  LogMessage& victim = file.slots[static_cast<std::size_t>(below(capacity))];
  const std::string full(kTextSize, 'x');
  switch (below(8)) {
    case 0:
      CopyText(victim.body.text, full);
      break;
    case 1:
      CopyText(victim.body.source, full);
      break;
    case 2:
      victim.body.type = static_cast<std::uint32_t>(below(8));
      break;
    case 3:
      victim.body.timestamp[below(8)] = static_cast<std::int16_t>(random());
      break;
    case 4:
      if (below(4) == 0) file.header.maxMessages = 2000;
      break;
    default:
      break;
  }
  return file;
}

TEST(IntegrityAgainstPlainRules, RandomFilesAreJudgedAndLoadedAlike) {
  std::mt19937 random(1);
  std::map<IntegrityRule, int> seen;
  for (int i = 0; i < 2000; ++i) {
    SCOPED_TRACE(i);
    MemoryFile file = RandomFile(random);
    MessageMirror loaded;
    const IntegrityRule rule = FirstBrokenRule(file.header, file, &loaded);
    ASSERT_EQ(rule, PlainRule(file.header, file));
    ++seen[rule];
    if (rule != IntegrityRule::NoneBroken) continue;
    ASSERT_EQ(loaded.Size(), static_cast<std::size_t>(file.header.messageCount));
    loaded.BringIntoMemory(loaded.Size(), file);
    std::vector<LogMessage> messages;
    loaded.FromNewest([&](const LogMessage& message) { messages.push_back(message); });
    const std::vector<LogMessage> expected = file.Messages();
    for (std::size_t m = 0; m < expected.size(); ++m) {
      ASSERT_EQ(std::memcmp(&messages[m], &expected[m], sizeof messages[m]), 0) << m;
    }
  }
  for (const IntegrityRule rule :
       {IntegrityRule::NoneBroken, IntegrityRule::SlotsInFile, IntegrityRule::NewestFirst,
        IntegrityRule::TextsEnd, IntegrityRule::KnownType}) {
    EXPECT_GT(seen[rule], 20);
  }
}

}  // namespace
}  // namespace StoreTest
