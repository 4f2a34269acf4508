// Tests the path of messages from the driver and from clients into the ring of the file, and what readers see
// in it.

#include "tests/system/system_test.h"

#include <cstring>

using namespace std::chrono_literals;

class MessageRoad : public SystemTest {
 protected:
  std::vector<LogMessageBody> Numbered(int count) {
    std::vector<LogMessageBody> messages;
    messages.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) messages.push_back(Message(std::to_string(i), i));
    return messages;
  }
};

TEST_F(MessageRoad, MessagesOfDriverAndPipeReachTwoReadersInTimeOrderWithTheirBytes) {
  RunService();
  const std::uint64_t changesBefore = Header().changeCount;
  const LogMessageBody early = Message("early, by the pipe", 1000);
  const LogMessageBody middle = WithSource(Message("middle, by the driver", 2000), "Driver");
  const LogMessageBody late = WithType(Message("late, by the pipe", 3000), 3);
  SubmitOverPipe(late);
  PutIntoDriver({middle});
  SubmitOverPipe(early);
  ExpectTexts({late.text, middle.text, early.text});
  EXPECT_GT(Header().changeCount, changesBefore);

  ReaderProcess one("hold", ScratchFile("one"));
  ReaderProcess two("hold", ScratchFile("two"));
  ASSERT_EQ(one.NextLine(), "holding");
  ASSERT_EQ(two.NextLine(), "holding");
  EXPECT_EQ(Header().readCount, 2);
  for (const ReaderProcess* reader : {&one, &two}) {
    const std::vector<LogMessage> seen = reader->ResultMessages();
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_EQ(std::memcmp(&seen[0].body, &late, sizeof(late)), 0);
    EXPECT_EQ(std::memcmp(&seen[1].body, &middle, sizeof(middle)), 0);
    EXPECT_EQ(std::memcmp(&seen[2].body, &early, sizeof(early)), 0);
  }
  one.Tell();
  ASSERT_EQ(one.NextLine(), "released");
  EXPECT_EQ(Header().readCount, 1);
  two.Tell();
  ASSERT_EQ(two.NextLine(), "released");
  EXPECT_EQ(Header().readCount, 0);
}

TEST_F(MessageRoad, ABackDatedMessageRewritesTheNewerOnesOnceWithNewSequences) {
  RunService();
  SubmitOverPipe(Message("one", 1000));
  SubmitOverPipe(Message("three", 3000));
  ExpectTexts({"three", "one"});
  const LogFileHeader before = Header();
  EXPECT_EQ(before.nextSequence, 2U);
  SubmitOverPipe(Message("two", 2000));
  ExpectTexts({"three", "two", "one"});
  const LogFileHeader after = Header();
  EXPECT_EQ(after.rewriteCount, before.rewriteCount + 1);
  EXPECT_EQ(after.changeCount, before.changeCount + 1);
  EXPECT_EQ(after.nextSequence, 4U);
  const std::vector<LogMessage> messages = SlotsOfFile().NewestFirst();
  EXPECT_EQ(messages[0].sequence, 3U);
  EXPECT_EQ(messages[1].sequence, 2U);
  EXPECT_EQ(messages[2].sequence, 0U);
}

TEST_F(MessageRoad, AFullRingKeepsTheNewestMessages) {
  RunService({.maxMessage = 10});
  for (int i = 0; i < 6; ++i) SubmitOverPipe(Message(std::to_string(i), i));
  ExpectTexts({"5", "4", "3", "2", "1", "0"});
  for (int i = 6; i < 12; ++i) SubmitOverPipe(Message(std::to_string(i), i));
  ExpectTexts({"11", "10", "9", "8", "7", "6", "5", "4", "3", "2"});
  EXPECT_EQ(Header().nextSlot, 2);
  EXPECT_EQ(Header().nextSequence, 12U);
}

TEST_F(MessageRoad, TenThousandMessagesOfTheDriverAreDrainedInOneTickAndStoredInOrder) {
  constexpr int kCount = 10000;
  Settings({.maxMessage = 12000});
  InstallService();
  Driver().Put(Numbered(kCount));
  StartService();
  // A tick ends with the one call that fails. No tick may have ended while messages are left.
  ASSERT_TRUE(Eventually(60s, [this] {
    const TamLogDriverCounters counters = Driver().Counters();
    if (counters.queued != 0) {
      EXPECT_EQ(counters.failed, 0U) << counters.served;
    }
    return counters.queued == 0;
  }));
  EXPECT_EQ(Driver().Counters().served, static_cast<std::uint32_t>(kCount));
  ASSERT_TRUE(WaitForMessageCount(kCount, 20s));
  const std::vector<LogMessage> messages = SlotsOfFile().NewestFirst();
  ASSERT_EQ(messages.size(), static_cast<std::size_t>(kCount));
  for (int i = 0; i < kCount; ++i) {
    const LogMessage& message = messages[static_cast<std::size_t>(kCount - 1 - i)];
    ASSERT_EQ(std::string(message.body.text), std::to_string(i));
    ASSERT_EQ(message.sequence, static_cast<std::uint64_t>(i));
  }
}

TEST_F(MessageRoad, MorePendingThanTheCapacityIsWrittenNewestFirstFromSlotZero) {
  RunService({.maxMessage = 50});
  SubmitOverPipe(Message("in the file before", 0));
  ExpectTexts({"in the file before"});
  const LogFileHeader before = Header();

  ReaderProcess reader("hold",
                       ScratchFile("held"));  // keeps the flush from writing the messages in parts
  ASSERT_EQ(reader.NextLine(), "holding");
  Driver().Put(Numbered(200));
  ASSERT_TRUE(Eventually(20s, [this] { return Driver().Counters().queued == 0; }));
  SubmitOverPipe(Message("the newest", 500));
  reader.Tell();
  ASSERT_EQ(reader.NextLine(), "released");
  ASSERT_TRUE(WaitForMessageCount(50, 20s));

  const TestLogFile image = SlotsOfFile();
  EXPECT_EQ(image.header.nextSlot, 0);
  EXPECT_EQ(image.header.rewriteCount, before.rewriteCount + 1);
  EXPECT_EQ(image.header.nextSequence, before.nextSequence);
  // The order contradicts the ring's order and stays so: slot 0 has the newest message, and none got a
  // sequence number.
  EXPECT_STREQ(image.slots[0].body.text, "the newest");
  for (std::size_t i = 1; i < 50; ++i) {
    EXPECT_EQ(std::string(image.slots[i].body.text), std::to_string(200 - i));
    EXPECT_EQ(image.slots[i].sequence, 0U);
  }
}
