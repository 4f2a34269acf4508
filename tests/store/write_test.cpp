// Intake, flush, clear, load and write to disk on a real file.

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "tests/store/log_file_fixture.h"
#include "tests/support/wait_until.h"

namespace StoreTest {
namespace {

using AddMessage = LogFile;
using FlushWrites = LogFile;
using ClearMessages = LogFile;
using LoadToList = LogFile;
using WriteToDisk = LogFile;

// Intake ------------------------------------------------------------------------------------------------

TEST_F(AddMessage, AMessageWhoseTypeIsSwitchedOffIsNeverStored) {
  Open();
  configuration.typeFilter[2] = false;
  Submit(OfType(2, Message("off", At(12, 0))));
  Submit(OfType(1, Message("on", At(12, 0))));
  Flush();
  EXPECT_EQ(Newest(), (Texts{"on"}));
}

TEST_F(AddMessage, AMessageOfAnUnknownTypeIsNeverStored) {
  Open();
  Submit(OfType(4, Message("unknown", At(12, 0))));
  Submit(OfType(0xFFFFFFFFU, Message("unknown", At(12, 0))));
  Flush();
  EXPECT_EQ(Header().messageCount, 0);
}

TEST_F(AddMessage, AMessageWhoseSourceMatchesNoIncludeFilterIsNeverStored) {
  Open();
  configuration.includeFilters = {"Driver"};
  configuration.excludeFilters = {"Driver"};
  Submit(From("Camera", Message("dropped", At(12, 0))));
  Submit(From("DRIVER42", Message("kept", At(12, 0))));
  Flush();
  EXPECT_EQ(Newest(), (Texts{"kept"}));
}

TEST_F(AddMessage, AMessageWhoseSourceMatchesAnExcludeFilterIsNeverStored) {
  Open();
  configuration.excludeFilters = {"Camera"};
  Submit(From("cam", Message("dropped", At(12, 0))));
  Submit(From("Driver", Message("kept", At(12, 0))));
  Flush();
  EXPECT_EQ(Newest(), (Texts{"kept"}));
}

TEST_F(AddMessage, ADroppedMessageIsNoChange) {
  Open();
  const std::uint64_t before = Header().changeCount;
  Submit(OfType(4, Message("dropped")));
  Close();
  EXPECT_EQ(Header().changeCount, before);
}

TEST_F(AddMessage, TheSendersBytesAreStoredUnchanged) {
  Open();
  LogMessageBody body = Message("", At(12, 0));
  body.origin[3] = 0xEE;
  body.timestamp[7] = 77;
  CopyText(body.source, std::string(kTextSize, 's'));
  CopyText(body.text, std::string(kTextSize, '\xF0'));
  body.tail[0] = 0xDD;
  Submit(body);
  Flush();
  ASSERT_EQ(Messages().size(), 1U);
  const LogMessage stored = Messages()[0];
  EXPECT_EQ(std::memcmp(&stored.body, &body, sizeof body), 0);
}

TEST_F(AddMessage, GoesOnWhileAFlushWaitsForAReader) {
  Open();
  TestReader reader(names);
  ASSERT_TRUE(reader.Enter(1000));
  Submit("a", At(12, 0));
  std::thread flush([&] { Flush(); });
  ASSERT_TRUE(TestSupport::WaitUntil([&] { return !reader.WaitForReadWait(0); }));
  Submit("b", At(12, 1));
  reader.Leave();
  flush.join();
  EXPECT_EQ(Newest(), (Texts{"b", "a"}));
}

// Flush -------------------------------------------------------------------------------------------------

TEST_F(FlushWrites, PutsMessagesIntoTheRingAndCountsTheChange) {
  Open();
  Submit("b", At(12, 1));
  Submit("a", At(12, 0));
  EXPECT_EQ(Header().messageCount, 0);
  Flush();
  EXPECT_EQ(Newest(), (Texts{"b", "a"}));
  EXPECT_EQ(Numbers(), (Sequences{1, 0}));
  EXPECT_EQ(Header().changeCount, 3U);
  EXPECT_EQ(Header().rewriteCount, 1U);
  EXPECT_EQ(Header().nextSequence, 2U);
}

TEST_F(FlushWrites, WithNothingPendingNeedsNoFile) {
  EXPECT_NO_THROW(Flush());
  Open();
  const std::string before = Bytes();
  Flush();
  EXPECT_EQ(Bytes(), before);
}

TEST_F(FlushWrites, ABackDatedMessageRewritesTheNewerOnesAndRaisesRewriteCountOnce) {
  Open();
  Submit("a", At(12, 0));
  Submit("c", At(12, 2));
  Submit("d", At(12, 3));
  Flush();
  Submit("b", At(12, 1));
  Flush();
  EXPECT_EQ(Newest(), (Texts{"d", "c", "b", "a"}));
  EXPECT_EQ(Numbers(), (Sequences{5, 4, 3, 0}));
  EXPECT_EQ(Header().rewriteCount, 2U);
  EXPECT_EQ(Header().nextSequence, 6U);
}

TEST_F(FlushWrites, MorePendingThanSlotsRewritesTheRingFromSlotZeroNewestFirst) {
  SetCapacity(3);
  Open();
  for (int i = 0; i < 5; ++i) Submit(std::to_string(i), At(12, i));
  Flush();
  EXPECT_EQ(Slots(), (Texts{"4", "3", "2"}));
  EXPECT_EQ(Header().nextSlot, 0);
  EXPECT_EQ(Header().messageCount, 3);
  EXPECT_EQ(Header().rewriteCount, 2U);
  EXPECT_EQ(Header().nextSequence, 0U);
}

TEST_F(FlushWrites, GoesRoundTheRing) {
  SetCapacity(3);
  Open();
  for (int i = 0; i < 7; ++i) {
    Submit(std::to_string(i), At(12, i));
    Flush();
  }
  EXPECT_EQ(Newest(), (Texts{"6", "5", "4"}));
  EXPECT_EQ(Numbers(), (Sequences{6, 5, 4}));
  EXPECT_EQ(Header().nextSlot, 1);
}

TEST_F(FlushWrites, OfAClosedFileFailsAndTheMessagesStayPending) {
  Submit("a", At(12, 0));
  EXPECT_EQ(FailureOf([&] { Flush(); }), "Failed to grab write access, some handles or pointers are invalid");
}

TEST_F(FlushWrites, ASlotBeyondTheMappedFileIsAFailureAndTheMessageStaysPending) {
  Open();
  TestReader reader(names);
  reader.Header().maxMessages = 1000000;
  reader.Header().nextSlot = 999999;
  Submit("a", At(12, 0));
  EXPECT_EQ(FailureOf([&] { Flush(); }),
            "Failed to write a message during FlushWrites()\nThere is no such slot in the mapped log file");
  reader.Header().maxMessages = 10;
  reader.Header().nextSlot = 0;
  Flush();
  EXPECT_EQ(Newest(), (Texts{"a"}));
}

TEST_F(FlushWrites, ADamagedCapacityNeverDividesByZero) {
  Open();
  TestReader reader(names);
  reader.Header().maxMessages = 0;
  Submit("a", At(12, 0));
  EXPECT_NO_THROW(Flush());
  EXPECT_EQ(Header().messageCount, 0);
}

// Clear -------------------------------------------------------------------------------------------------

TEST_F(ClearMessages, EmptiesTheFileAndKeepsCountingTheSequence) {
  Open();
  Submit("a", At(12, 0));
  Submit("b", At(12, 1));
  Flush();
  Submit("pending", At(12, 2));
  Clear();
  EXPECT_EQ(Header().messageCount, 0);
  EXPECT_EQ(Header().nextSlot, 0);
  EXPECT_EQ(Header().rewriteCount, 2U);
  EXPECT_EQ(Header().changeCount, 4U);
  EXPECT_EQ(Header().nextSequence, 2U);
  Flush();
  EXPECT_EQ(Header().messageCount, 0);
  Submit("c", At(11, 0));
  Flush();
  EXPECT_EQ(Newest(), (Texts{"c"}));
  EXPECT_EQ(Numbers(), (Sequences{2}));
}

TEST_F(ClearMessages, OfAClosedFileFails) {
  EXPECT_EQ(FailureOf([&] { Clear(); }), "Failed to grab write access, some handles or pointers are invalid");
}

TEST_F(ClearMessages, ReadersThatWaitComeInAsSoonAsItIsDone) {
  Open();
  TestReader inside(names);
  TestReader waiting(names);
  ASSERT_TRUE(inside.Enter(1000));
  std::thread clear([&] { Clear(); });
  ASSERT_TRUE(TestSupport::WaitUntil([&] { return !inside.WaitForReadWait(0); }));
  std::atomic<bool> entered = false;
  std::thread reader([&] { entered = waiting.Enter(10000); });
  EXPECT_FALSE(entered);
  inside.Leave();
  reader.join();
  clear.join();
  EXPECT_TRUE(entered);
  EXPECT_EQ(Header().messageCount, 0);
  waiting.Leave();
}

// Load --------------------------------------------------------------------------------------------------

TEST_F(LoadToList, FillsTheListNewestFirst) {
  SetCapacity(3);
  Open();
  for (int i = 0; i < 4; ++i) {
    Submit(std::to_string(i), At(12, i));
    Flush();
  }
  MessageList list;
  list.AppendOldest({});
  server->LoadToList(list);
  Texts texts;
  for (const MessageList::Entry& entry : list) {
    texts.push_back(TextOf(entry.message.body));
    EXPECT_EQ(entry.key, TimeKey(entry.message.body));
  }
  EXPECT_EQ(texts, (Texts{"3", "2", "1"}));
}

// It releases its read access before it reads the first byte: a writer may have access while it reads.
TEST_F(LoadToList, ReleasesItsReadAccessBeforeItReads) {
  Open();
  Submit("a", At(12, 0));
  Flush();
  TestReader reader(names);
  MessageList list;
  server->LoadToList(list);
  EXPECT_EQ(reader.Header().readCount, 0);
  EXPECT_TRUE(reader.WriteWaitIsSignalled());
  EXPECT_EQ(list.Size(), 1U);
}

TEST_F(LoadToList, ASlotBeyondTheMappedFileIsAFailure) {
  Open();
  TestReader reader(names);
  reader.Header().messageCount = 100;
  MessageList list;
  EXPECT_EQ(FailureOf([&] { server->LoadToList(list); }),
            "Failed to read a message in LoadToList()\nThere is no such slot in the mapped log file");
}

// Write to disk -----------------------------------------------------------------------------------------

TEST_F(WriteToDisk, TakesReadAccessAndReleasesIt) {
  Open();
  TestReader reader(names);
  EXPECT_NO_THROW(server->WriteToDisk());
  EXPECT_EQ(reader.Header().readCount, 0);
  EXPECT_TRUE(reader.WriteWaitIsSignalled());
}

TEST_F(WriteToDisk, OfAClosedFileFailsWithItsOwnSentence) {
  EXPECT_EQ(FailureOf([&] { server->WriteToDisk(); }),
            "Failed to get file read access in WriteToDisk()\n"
            "Failed to grab read access, some handles or pointers are invalid");
}

TEST_F(WriteToDisk, AFlushThatFailsIsReportedAndReadAccessGivenBack) {
  Open();
  SetCapacity(100000);  // more than is mapped
  const std::string failure = FailureOf([&] { server->WriteToDisk(); });
  EXPECT_EQ(failure.rfind(
                "Failed to force log file changes saved to disk, FlushViewOfFile() failed in WriteToDisk()"
                " - Error code : 87 - ",
                0),
            0U)
      << failure;
  EXPECT_EQ(Header().readCount, 0);
}

}  // namespace
}  // namespace StoreTest
