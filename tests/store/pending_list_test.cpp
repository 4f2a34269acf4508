// Intake, flush and clear on a file in memory.

#include "store/pending_list.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/store/memory_file.h"
#include "tests/store/messages.h"

namespace StoreTest {
namespace {

using Texts = std::vector<std::string>;
using Sequences = std::vector<std::uint64_t>;

class PendingListTest : public testing::Test {
 protected:
  void Submit(const std::string& text, Moment at) {
    list.Add(Message(text, at), static_cast<std::uint32_t>(file.header.maxMessages));
  }
  void Flush() { file.Flush(list); }
  Texts Newest() const { return file.Texts(); }

  MemoryFile file{10};
  PendingList list;
};

TEST_F(PendingListTest, MessagesGoIntoTheRingInTheOrderOfTheirTimes) {
  Submit("b", At(12, 1));
  Submit("a", At(12, 0));
  Submit("c", At(12, 2));
  EXPECT_EQ(list.PendingCount(), 3);
  Flush();
  EXPECT_EQ(Newest(), (Texts{"c", "b", "a"}));
  EXPECT_EQ(file.Sequences(), (Sequences{2, 1, 0}));
  EXPECT_EQ(file.header.nextSlot, 3);
  EXPECT_EQ(file.header.nextSequence, 3U);
  EXPECT_EQ(file.header.rewriteCount, 1U);
  EXPECT_EQ(list.PendingCount(), 0);
}

TEST_F(PendingListTest, AmongEqualTimesTheLaterOneCountsAsNewer) {
  Submit("first", At(12, 0));
  Submit("second", At(12, 0));
  Flush();
  Submit("third", At(12, 0));
  EXPECT_EQ(list.PendingCount(), 1);
  Flush();
  EXPECT_EQ(Newest(), (Texts{"third", "second", "first"}));
  EXPECT_EQ(file.header.rewriteCount, 1U);
}

TEST_F(PendingListTest, ABackDatedMessageMakesTheNewerOnesWrittenAgainWithNewNumbers) {
  Submit("a", At(12, 0));
  Submit("c", At(12, 2));
  Submit("d", At(12, 3));
  Flush();
  Submit("b", At(12, 1));
  EXPECT_EQ(list.PendingCount(), 3);
  Flush();
  EXPECT_EQ(Newest(), (Texts{"d", "c", "b", "a"}));
  EXPECT_EQ(file.Sequences(), (Sequences{5, 4, 3, 0}));
  EXPECT_EQ(file.header.rewriteCount, 2U);
  EXPECT_EQ(file.header.nextSequence, 6U);
  EXPECT_EQ(file.header.messageCount, 4);
}

TEST_F(PendingListTest, SeveralBackDatedMessagesOfOneFlushAreOneRewrite) {
  Submit("b", At(12, 1));
  Submit("d", At(12, 3));
  Flush();
  Submit("c", At(12, 2));
  Submit("a", At(12, 0));
  Flush();
  EXPECT_EQ(Newest(), (Texts{"d", "c", "b", "a"}));
  EXPECT_EQ(file.header.rewriteCount, 2U);
}

TEST_F(PendingListTest, AFullRingLosesItsOldestMessage) {
  file = MemoryFile(3);
  for (const char* text : {"a", "b", "c", "d"}) {
    Submit(text, At(12, 0));
    Flush();
  }
  EXPECT_EQ(Newest(), (Texts{"d", "c", "b"}));
  EXPECT_EQ(file.header.nextSlot, 1);
  EXPECT_EQ(file.header.messageCount, 3);
}

TEST_F(PendingListTest, AsManyPendingAsSlotsRewritesTheRingNewestFirst) {
  file = MemoryFile(3);
  Submit("a", At(12, 0));
  Submit("b", At(12, 1));
  Submit("c", At(12, 2));
  Flush();
  EXPECT_EQ(file.Slots(), (Texts{"c", "b", "a"}));
  EXPECT_EQ(file.header.nextSlot, 0);
  EXPECT_EQ(file.header.messageCount, 3);
  EXPECT_EQ(file.header.rewriteCount, 2U);
  EXPECT_EQ(file.header.nextSequence, 0U);
  EXPECT_EQ(file.Sequences(), (Sequences{0, 0, 0}));
}

TEST_F(PendingListTest, MorePendingThanSlotsKeepsTheNewest) {
  file = MemoryFile(3);
  for (int i = 0; i < 7; ++i) Submit(std::to_string(i), At(12, i));
  EXPECT_EQ(list.PendingCount(), 3);
  Flush();
  EXPECT_EQ(file.Slots(), (Texts{"6", "5", "4"}));
}

TEST_F(PendingListTest, AWholeRewriteKeepsTheNumbersThatMessagesHaveAlready) {
  file = MemoryFile(3);
  Submit("c", At(12, 2));
  Submit("d", At(12, 3));
  Flush();
  Submit("a", At(12, 0));  // older than the two of the file: everything is pending
  Flush();
  EXPECT_EQ(file.Slots(), (Texts{"d", "c", "a"}));
  EXPECT_EQ(file.slots[0].sequence, 1U);
  EXPECT_EQ(file.slots[1].sequence, 0U);
  EXPECT_EQ(file.slots[2].sequence, 0U);
}

TEST_F(PendingListTest, AfterAWholeRewriteTheNextMessageGoesOverTheNewest) {
  file = MemoryFile(3);
  for (const char* text : {"a", "b", "c"}) Submit(text, At(12, 0));
  Flush();
  Submit("d", At(12, 1));
  Flush();
  EXPECT_EQ(file.Slots(), (Texts{"d", "b", "a"}));
}

TEST_F(PendingListTest, InARingOfOneSlotEveryFlushIsAWholeRewrite) {
  file = MemoryFile(1);
  for (int i = 0; i < 3; ++i) {
    Submit(std::to_string(i), At(12, i));
    Flush();
    EXPECT_EQ(file.Slots(), (Texts{std::to_string(i)}));
    EXPECT_EQ(file.header.nextSlot, 0);
    EXPECT_EQ(file.header.messageCount, 1);
  }
  EXPECT_EQ(file.header.rewriteCount, 4U);
}

TEST_F(PendingListTest, AMessageOlderThanAFullRingIsDroppedAndTheRingWrittenAgain) {
  file = MemoryFile(2);
  Submit("b", At(12, 1));
  Flush();
  Submit("c", At(12, 2));
  Flush();
  Submit("a", At(12, 0));
  EXPECT_EQ(list.PendingCount(), 2);
  Flush();
  EXPECT_EQ(file.Slots(), (Texts{"c", "b"}));
  EXPECT_EQ(file.header.rewriteCount, 2U);
}

TEST_F(PendingListTest, WithACapacityOfZeroNothingIsEverPending) {
  file = MemoryFile(0);
  Submit("a", At(12, 0));
  EXPECT_EQ(list.PendingCount(), 0);
  Flush();
  EXPECT_EQ(file.header.rewriteCount, 1U);
}

TEST_F(PendingListTest, NothingPendingWritesNothing) {
  file.FailAtWrite(1);
  EXPECT_NO_THROW(Flush());
}

TEST_F(PendingListTest, AFailedFlushLeavesEverythingPendingAndTheNextOneWritesIt) {
  Submit("a", At(12, 0));
  Submit("c", At(12, 2));
  Flush();
  Submit("b", At(12, 1));
  const LogFileHeader before = file.header;
  // Two slots and the header are to be written; each of the three writes fails once.
  for (int n = 1; n <= 3; ++n) {
    file.FailAtWrite(n);
    EXPECT_THROW(Flush(), std::runtime_error) << n;
    EXPECT_EQ(list.PendingCount(), 2) << n;
    EXPECT_EQ(file.header.nextSequence, before.nextSequence) << n;
    EXPECT_EQ(file.header.rewriteCount, before.rewriteCount) << n;
  }
  file.WorkAgain();
  Flush();
  EXPECT_EQ(Newest(), (Texts{"c", "b", "a"}));
  EXPECT_EQ(file.Sequences(), (Sequences{3, 2, 0}));
  EXPECT_EQ(file.header.rewriteCount, before.rewriteCount + 1);
}

// Messages that have to move are read from the file before the first slot is overwritten.
TEST_F(PendingListTest, AFlushThatFailsWhileItMovesMessagesOfTheFileLosesNoneOfThem) {
  for (int n = 1; n <= 12; ++n) {
    file = MemoryFile(10);
    list.Clear();
    for (int i = 0; i < 8; ++i) Submit(std::to_string(i), At(12, i));
    Flush();
    Submit("late", At(12, 3));
    file.FailAtWrite(n);  // four are read back, five written, then the header
    EXPECT_EQ(n <= 10, [&] {
      try {
        Flush();
        return false;
      } catch (const std::runtime_error&) {
        return true;
      }
    }());
    file.WorkAgain();
    Submit("later still", At(12, 1));
    Flush();
    EXPECT_EQ(Newest(), (Texts{"7", "6", "5", "4", "late", "3", "2", "later still", "1", "0"})) << n;
  }
}

// A message whose slot was overwritten after a whole rewrite is still known.
TEST_F(PendingListTest, MessagesWrittenOverAfterAWholeRewriteComeBackWhenTheyAreWrittenAgain) {
  file = MemoryFile(3);
  for (int i = 0; i < 3; ++i) Submit(std::to_string(i), At(12, i));
  Flush();
  EXPECT_EQ(file.Slots(), (Texts{"2", "1", "0"}));
  Submit("3", At(12, 3));
  Flush();
  EXPECT_EQ(file.Slots(), (Texts{"3", "1", "0"}));
  Submit("1.5", At(12, 1, 30));
  Flush();
  EXPECT_EQ(file.Slots(), (Texts{"3", "2", "1.5"}));
}

TEST_F(PendingListTest, NumbersOfAFailedFlushAreNotLeftInTheMessages) {
  file = MemoryFile(3);
  Submit("a", At(12, 0));
  Submit("b", At(12, 1));
  file.FailAtWrite(3);
  EXPECT_THROW(Flush(), std::runtime_error);
  file.WorkAgain();
  Submit("c", At(12, 2));  // now the whole ring is written, with unchanged numbers
  Flush();
  EXPECT_EQ(file.Sequences(), (Sequences{0, 0, 0}));
}

TEST_F(PendingListTest, AClearForgetsMessagesAndCounts) {
  Submit("b", At(12, 1));
  Flush();
  Submit("a", At(12, 0));
  list.Clear();
  EXPECT_EQ(list.PendingCount(), 0);
  ClearRing(file.header);
  Submit("c", At(11, 0));
  EXPECT_EQ(list.PendingCount(), 1);
  Flush();
  EXPECT_EQ(Newest(), (Texts{"c"}));
}

TEST_F(PendingListTest, ALoadedFileIsMirroredAndNothingOfItIsPending) {
  Submit("lost", At(12, 9));
  file.slots[0].body = Message("a", At(12, 0));
  file.slots[1].body = Message("b", At(12, 1));
  file.header.messageCount = file.header.nextSlot = 2;
  file.header.nextSequence = 2;
  file.Load(list);
  EXPECT_EQ(list.PendingCount(), 0);
  Submit("between", At(12, 0, 30));
  EXPECT_EQ(list.PendingCount(), 2);
  Flush();
  EXPECT_EQ(Newest(), (Texts{"b", "between", "a"}));
}

// After a compaction without a resize the list is oldest first.
TEST_F(PendingListTest, AListInTheWrongOrderIsWalkedSafely) {
  file = MemoryFile(4);
  for (int i = 0; i < 4; ++i) {
    file.slots[static_cast<std::size_t>(3 - i)].body = Message(std::to_string(i), At(12, i));
  }
  file.header.messageCount = 4;
  file.Load(list);
  Submit("later", At(13, 0));
  EXPECT_EQ(list.PendingCount(), 1);
  Submit("early", At(11, 0));
  EXPECT_EQ(list.PendingCount(), 4);
  Flush();
  EXPECT_EQ(file.Slots(), (Texts{"later", "0", "1", "2"}));
}

TEST_F(PendingListTest, ADamagedHeaderDoesNotLeadOutOfTheFile) {
  Submit("a", At(12, 0));
  file.header.maxMessages = 1000;
  file.header.nextSlot = 999;
  EXPECT_THROW(Flush(), std::out_of_range);
  EXPECT_EQ(list.PendingCount(), 1);

  file.header.maxMessages = 5;
  file.header.nextSlot = -7;
  file.header.messageCount = -20;
  EXPECT_NO_THROW(Flush());
  EXPECT_EQ(list.PendingCount(), 0);
}

TEST_F(PendingListTest, ADamagedCapacityOfZeroOrLessNeverDividesByIt) {
  for (const std::int32_t capacity : {0, -1, -2147483647 - 1}) {
    Submit("a", At(12, 0));
    file.header.maxMessages = capacity;
    EXPECT_NO_THROW(Flush()) << capacity;
    file.header.maxMessages = 10;
  }
}

TEST_F(PendingListTest, TheBytesOfAMessageAreStoredUnchanged) {
  LogMessageBody body = Message("", At(1, 1));
  for (std::uint8_t i = 0; i < 8; ++i) body.origin[i] = static_cast<std::uint8_t>(200 + i);
  CopyText(body.source, std::string(kTextSize, '\xFF'));
  CopyText(body.text, std::string(kTextSize, '\x80'));
  body.tail[3] = 0x77;
  list.Add(body, 10);
  Flush();
  EXPECT_EQ(std::memcmp(&file.slots[0].body, &body, sizeof body), 0);
}

}  // namespace
}  // namespace StoreTest
