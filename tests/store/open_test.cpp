// Opening, checking, reformatting, compacting, resizing and closing the file.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "tests/store/log_file_fixture.h"
#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/wait_until.h"
#include "util/win32.h"

namespace StoreTest {
namespace {

using OpenFile = LogFile;
using CloseFile = LogFile;
using WaitUntilFree = LogFile;
using TamLogUtil::Timeout;

void ExpectEmpty(const LogFileHeader& header, std::int32_t maxMessages) {
  EXPECT_EQ(header.messageCount, 0);
  EXPECT_EQ(header.nextSlot, 0);
  EXPECT_EQ(header.rewriteCount, 1U);
  EXPECT_EQ(header.nextSequence, 0U);
  EXPECT_EQ(header.maxMessages, maxMessages);
  EXPECT_EQ(header.readCount, 0);
  EXPECT_EQ(header.serverRunning, 1);
}

// A new file --------------------------------------------------------------------------------------------

TEST_F(OpenFile, ANewFileIsSizedAndFormattedAndItsLockNamesAreFilled) {
  Open();
  EXPECT_EQ(Bytes().size(), 240U + 560U * 10U);
  ExpectEmpty(Header(), 10);
  EXPECT_EQ(LockName(0), names.headerLock);
  EXPECT_EQ(LockName(1), names.readWait);
  EXPECT_EQ(LockName(2), names.writeWait);
}

TEST_F(OpenFile, AnEmptyFileIsTakenForANewOne) {
  TestSupport::WriteBytes(configuration.logFile, "");
  Open();
  EXPECT_EQ(Bytes().size(), 240U + 560U * 10U);
  ExpectEmpty(Header(), 10);
}

// The reformat writes 1 (Ring.AReformatWritesItsFiveFieldsAndLeavesTheOthers), then its write access ends
// with a change. A compaction of the new file to its capacity raises it once more, which the header copy
// undoes.
TEST_F(OpenFile, AReformatWritesChangeCountOneAndItsReleaseRaisesIt) {
  Open();
  EXPECT_EQ(Header().changeCount, 2U);
}

TEST_F(OpenFile, WithACapacityOfZeroAFileIsOpenedAndStaysEmpty) {
  SetCapacity(0);
  Open();
  EXPECT_EQ(Bytes().size(), 240U);
  ExpectEmpty(Header(), 0);
  Submit("a", At(12, 0));
  Flush();
  EXPECT_EQ(Header().messageCount, 0);
  Close();
  Restart();
  ExpectEmpty(Header(), 0);
}

TEST_F(OpenFile, WithACapacityOfOneTheRingIsASingleSlot) {
  SetCapacity(1);
  Open();
  for (const char* text : {"a", "b", "c"}) {
    Submit(text, At(12, 0));
    Flush();
    EXPECT_EQ(Newest(), (Texts{text}));
    EXPECT_EQ(Header().nextSlot, 0);
  }
  Close();
  Restart();
  EXPECT_EQ(Newest(), (Texts{"c"}));
}

TEST_F(OpenFile, LockNamesAreCutAt63Characters) {
  names.readWait = "StoreTestLong" + std::string(60, 'x') + TestSupport::ProcessSuffix();
  Open();
  EXPECT_EQ(LockName(1), names.readWait.substr(0, 63));
  EXPECT_EQ(LockName(2), names.writeWait);
}

// An existing file --------------------------------------------------------------------------------------

TEST_F(OpenFile, ASoundFileOfTheRightSizeKeepsItsMessages) {
  MakeFile(10, {Message("a", At(12, 0)), Message("b", At(12, 1))});
  Open();
  EXPECT_EQ(Newest(), (Texts{"b", "a"}));
  EXPECT_EQ(Header().serverRunning, 1);
  EXPECT_EQ(Header().readCount, 0);
  EXPECT_EQ(Header().changeCount, 40U);
  EXPECT_EQ(Header().rewriteCount, 50U);
  EXPECT_EQ(LockName(0), names.headerLock);
}

TEST_F(OpenFile, AfterARestartMessagesGoOnWithTheirNumbersAndTheirOrder) {
  Open();
  Submit("a", At(12, 0));
  Submit("c", At(12, 2));
  Flush();
  Close();
  Restart();
  Submit("b", At(12, 1));
  Flush();
  EXPECT_EQ(Newest(), (Texts{"c", "b", "a"}));
  EXPECT_EQ(Numbers(), (Sequences{3, 2, 0}));
}

TEST_F(OpenFile, AReadCountLeftInTheFileDoesNotCostIt) {
  MakeFile(10, {Message("a", At(12, 0))});
  Damage([](LogFileHeader& header) { header.readCount = 17; });
  Open();
  EXPECT_EQ(Newest(), (Texts{"a"}));
  EXPECT_EQ(Header().readCount, 0);
}

TEST_F(OpenFile, MessagesOutOfOrderCostTheWholeFile) {
  MakeFile(10, {Message("a", At(12, 0)), Message("c", At(12, 2)), Message("b", At(12, 1))});
  Open();
  ExpectEmpty(Header(), 10);
  EXPECT_EQ(Header().changeCount, 2U);
}

TEST_F(OpenFile, ATextWithoutAZeroCostsTheWholeFile) {
  LogMessageBody body = Message("a", At(12, 0));
  CopyText(body.text, std::string(kTextSize, 't'));
  MakeFile(10, {body, Message("b", At(12, 1))});
  Open();
  ExpectEmpty(Header(), 10);
}

TEST_F(OpenFile, ASourceWithoutAZeroCostsTheWholeFile) {
  MakeFile(10, {From(std::string(kTextSize, 's'), Message("a")), Message("b", At(12, 1))});
  Open();
  ExpectEmpty(Header(), 10);
}

TEST_F(OpenFile, AnUnknownTypeCostsTheWholeFile) {
  MakeFile(10, {OfType(4, Message("a")), Message("b", At(12, 1))});
  Open();
  ExpectEmpty(Header(), 10);
}

TEST_F(OpenFile, AHeaderThatPointsBeyondTheFileCostsItsMessages) {
  MakeFile(10, {Message("a", At(12, 0))});
  Damage([](LogFileHeader& header) {
    header.maxMessages = 2000000000;
    header.messageCount = 1999999999;
    header.nextSlot = 1;
  });
  Open();
  ExpectEmpty(Header(), 10);
}

TEST_F(OpenFile, NegativeNumbersInTheHeaderCostTheMessages) {
  MakeFile(10, {Message("a", At(12, 0))});
  Damage([](LogFileHeader& header) { header.messageCount = -1; });
  Open();
  ExpectEmpty(Header(), 10);
}

TEST_F(OpenFile, AFileOfAFewBytesIsEmptiedAndResized) {
  TestSupport::WriteBytes(configuration.logFile, "not a log");
  Open();
  EXPECT_EQ(Bytes().size(), 240U + 560U * 10U);
  ExpectEmpty(Header(), 10);
}

TEST_F(OpenFile, ADamagedFileOfAnotherSizeIsEmptiedAndResized) {
  MakeFile(5, {Message("b", At(12, 1)), Message("a", At(12, 0))});
  Open();
  EXPECT_EQ(Bytes().size(), 240U + 560U * 10U);
  ExpectEmpty(Header(), 10);
  EXPECT_EQ(Header().changeCount, 2U);
}

TEST_F(OpenFile, APendingMessageDoesNotOutliveTheStop) {
  Open();
  Submit("a", At(12, 0));
  Flush();
  Submit("lost", At(12, 1));
  Close();
  Open();
  Submit("b", At(12, 2));
  Flush();
  EXPECT_EQ(Newest(), (Texts{"b", "a"}));
}

// The first file is still in memory with more messages pending than the reopened file holds.
TEST_F(OpenFile, CountsOfTheLastOpenDoNotReachIntoTheNextFile) {
  Open();
  for (int i = 0; i < 5; ++i) Submit(std::to_string(i), At(12, i));
  Close();
  configuration.logFile = directory.File("Other.dat");
  Open();
  Flush();
  EXPECT_EQ(Header().messageCount, 0);
  EXPECT_EQ(Header().nextSequence, 0U);
}

TEST_F(OpenFile, OpeningOverAnOpenFileClosesItFirst) {
  Open();
  Submit("a", At(12, 0));
  Flush();
  const std::string first = configuration.logFile;
  configuration.logFile = directory.File("Other.dat");
  Open();
  Close();
  EXPECT_EQ(TestSupport::ReadBytes(first).at(4), '\0');
  EXPECT_EQ(TestSupport::ReadBytes(first).size(), 240U + 560U * 10U);
}

// Another capacity --------------------------------------------------------------------------------------

TEST_F(OpenFile, AChangedCapacityEmptiesAFileOfDifferentTimes) {
  MakeFile(10, {Message("a", At(12, 0)), Message("b", At(12, 1))});
  SetCapacity(20);
  Open();
  EXPECT_EQ(Bytes().size(), 240U + 560U * 20U);
  ExpectEmpty(Header(), 20);
}

TEST_F(OpenFile, AChangedCapacityKeepsTheNewestMessagesWhenTheirTimesAreEqual) {
  MakeFile(10, {Message("a"), Message("b"), Message("c")});
  SetCapacity(2);
  Open();
  EXPECT_EQ(Bytes().size(), 240U + 560U * 2U);
  EXPECT_EQ(Slots(), (Texts{"c", "b"}));
  EXPECT_EQ(Header().messageCount, 2);
  EXPECT_EQ(Header().maxMessages, 2);
  EXPECT_EQ(Header().nextSlot, 0);
}

TEST_F(OpenFile, ALargerCapacityKeepsASingleMessage) {
  MakeFile(10, {Message("a", At(12, 0))});
  SetCapacity(20);
  Open();
  EXPECT_EQ(Newest(), (Texts{"a"}));
  EXPECT_EQ(Header().nextSlot, 1);
  EXPECT_EQ(Header().maxMessages, 20);
  EXPECT_EQ(Bytes().size(), 240U + 560U * 20U);
}

TEST_F(OpenFile, CompactionWithoutResizeLeavesTheReversedOrder) {
  // The size of ten slots, but a header that names eight.
  MakeFile(10, {Message("a", At(12, 0)), Message("b", At(12, 1)), Message("c", At(12, 2))});
  Damage([](LogFileHeader& header) { header.maxMessages = 8; });
  Open();
  EXPECT_EQ(Header().maxMessages, 10);
  EXPECT_EQ(Header().nextSlot, 3);
  EXPECT_EQ(Slots()[0], "c");
  EXPECT_EQ(Newest(), (Texts{"a", "b", "c"}));
  // The list in memory has the same order, and messages are still accepted and flushed.
  Submit("early", At(11, 0));
  Submit("late", At(13, 0));
  Flush();
  EXPECT_EQ(Header().messageCount, 5);
  Close();
  Restart();
  ExpectEmpty(Header(), 10);
}

TEST_F(OpenFile, TheHeaderCopyTakenBeforeACompactionIsWrittenBack) {
  MakeFile(10, {Message("a", At(12, 0))});
  Damage([](LogFileHeader& header) { header.maxMessages = 8; });
  Open();
  // The compaction's release made it 41; the copy brought 40 back.
  EXPECT_EQ(Header().changeCount, 40U);
  EXPECT_EQ(Header().readCount, 0);
}

TEST_F(OpenFile, AFullRewriteFailsTheNextCheck) {
  SetCapacity(3);
  Open();
  for (int i = 0; i < 3; ++i) Submit(std::to_string(i), At(12, i));
  Flush();
  EXPECT_EQ(Slots(), (Texts{"2", "1", "0"}));
  Close();
  Restart();
  ExpectEmpty(Header(), 3);
}

// Sizes above 4 GB --------------------------------------------------------------------------------------

TEST_F(OpenFile, AFileAbove4GBIsOpenedAndKeepsItsMessages) {
  SetCapacity(7669585);
  Open();
  Submit("a", At(12, 0));
  Flush();
  Close();
  Restart();
  TestReader reader(names);
  EXPECT_EQ(reader.Header().maxMessages, 7669585);
  ASSERT_EQ(reader.Messages().size(), 1U);
  EXPECT_EQ(TextOf(reader.Messages()[0].body), "a");
  EXPECT_EQ(reader.Header().changeCount, 3U);
}

// Failures ----------------------------------------------------------------------------------------------

TEST_F(OpenFile, AFileThatCannotBeOpenedIsReported) {
  configuration.logFile = directory.File("missing\\Logs.dat");
  const std::string failure = FailureOf([&] { Open(); });
  EXPECT_EQ(failure.rfind("Failed to open log file, CreateFile() failed - Error code : 3 - ", 0), 0U)
      << failure;
}

// As a scanner or a backup opens it.
TEST_F(OpenFile, AFileThatAnotherProgramDoesNotShareForAMomentIsOpened) {
  Open();
  Submit("a", At(12, 0));
  Flush();
  Close();
  TamLogUtil::AutoHandle scanner(
      CreateFileA(configuration.logFile.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
      TamLogUtil::AutoHandle::From::Take);
  ASSERT_FALSE(scanner.IsInvalid());
  std::thread leaving([&scanner] {
    Sleep(300);
    scanner.Close();
  });
  EXPECT_NO_THROW(Open());
  leaving.join();
  EXPECT_EQ(Newest(), (Texts{"a"}));
}

TEST_F(OpenFile, AFileThatAnotherProgramNeverSharesIsReported) {
  Open();
  Close();
  const TamLogUtil::AutoHandle scanner(
      CreateFileA(configuration.logFile.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
      TamLogUtil::AutoHandle::From::Take);
  ASSERT_FALSE(scanner.IsInvalid());
  const std::string failure = FailureOf([&] { Open(); });
  EXPECT_EQ(failure.rfind("Failed to open log file, CreateFile() failed - Error code : 32 - ", 0), 0U)
      << failure;
}

TEST_F(OpenFile, ANameThatBelongsToAnotherKindOfObjectIsReported) {
  const TamLogUtil::Event other(names.map.c_str(), nullptr);
  EXPECT_EQ(FailureOf([&] {
              Open();
            }).rfind("Failed to open a file mapping, CreateFileMapping() failed - Error code : 6 - ", 0),
            0U);
}

// Its pages cannot be touched: the process would end.
TEST_F(OpenFile, AMappingOfThatNameOfReservedMemoryIsReported) {
  const TamLogUtil::AutoHandle other(
      CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_RESERVE, 0, 1U << 24U,
                         names.map.c_str()),
      TamLogUtil::AutoHandle::From::Take);
  ASSERT_TRUE(other.IsValid());
  const std::string failure = FailureOf([&] { Open(); });
  EXPECT_EQ(
      failure.rfind("Failed to open a file mapping, CreateFileMapping() failed - Error code : 183 - ", 0), 0U)
      << failure;
}

TEST_F(OpenFile, EventsThatCannotBeCreatedAreReportedWithTheirCauses) {
  void* const mapping =
      CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, names.readWait.c_str());
  const std::string failure = FailureOf([&] { Open(); });
  CloseHandle(mapping);
  EXPECT_EQ(failure.rfind("Failed to create file access objects in MessageFile::OpenFile()\n"
                          "Failed to create Event object\nCreateEvent() failed - Error code : 6 - ",
                          0),
            0U)
      << failure;
}

TEST_F(OpenFile, AHeaderLockThatCannotBeCreatedIsReportedWithItsCauses) {
  void* const mapping =
      CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, names.headerLock.c_str());
  const std::string failure = FailureOf([&] { Open(); });
  CloseHandle(mapping);
  EXPECT_EQ(failure.rfind("Failed to create file access objects in MessageFile::OpenFile()\n"
                          "Failed to create Mutex object\nCreateEvent() failed - Error code : 6 - ",
                          0),
            0U)
      << failure;
}

TEST_F(OpenFile, AFailedOpenCanBeRepeated) {
  const std::string path = configuration.logFile;
  configuration.logFile = directory.File("missing\\Logs.dat");
  EXPECT_NE(FailureOf([&] { Open(); }), "");
  configuration.logFile = path;
  Open();
  ExpectEmpty(Header(), 10);
}

// Readers that keep the section of an earlier open -------------------------------------------------------

// Runs `action` while another thread destroys the reader after a moment.
template <class Action>
void WhileItLeaves(std::unique_ptr<TestReader>& reader, Action&& action) {
  std::thread leaving([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    reader.reset();
  });
  action();
  leaving.join();
}

TEST_F(OpenFile, AMappingThatAReaderKeepsAtASmallerSizeIsRefused) {
  Open();
  const TestReader reader(names);
  Close();
  SetCapacity(50);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(FailureOf([&] {
              Open();
            }).rfind("Failed to open a file mapping, CreateFileMapping() failed - Error code : 183 - ", 0),
            0U);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1900));
}

TEST_F(OpenFile, AFileThatAReaderKeepsMappedCannotShrink) {
  SetCapacity(50);
  Open();
  const auto reader = std::make_unique<TestReader>(names);
  Close();
  SetCapacity(10);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(
      FailureOf([&] {
        Open();
      }).rfind("Failed to resize file, SetEndOfFile() failed in ResizeFile() - Error code : 1224 - ", 0),
      0U);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1900));
}

TEST_F(OpenFile, AFileGrowsOnceItsReadersHaveLeft) {
  Open();
  auto reader = std::make_unique<TestReader>(names);
  Close();
  SetCapacity(50);
  WhileItLeaves(reader, [&] { EXPECT_EQ(FailureOf([&] { Open(); }), ""); });
  ExpectEmpty(Header(), 50);
}

TEST_F(OpenFile, AFileShrinksOnceItsReadersHaveLeft) {
  SetCapacity(50);
  Open();
  auto reader = std::make_unique<TestReader>(names);
  Close();
  SetCapacity(10);
  WhileItLeaves(reader, [&] { EXPECT_EQ(FailureOf([&] { Open(); }), ""); });
  ExpectEmpty(Header(), 10);
  EXPECT_EQ(Bytes().size(), 240U + 560U * 10U);
}

TEST_F(OpenFile, AReaderThatStaysDoesNotDelayAnOpenThatItIsNotInTheWayOf) {
  Open();
  Submit("a", At(12, 0));
  Flush();
  const TestReader reader(names);
  Close();
  const auto begin = std::chrono::steady_clock::now();
  Open();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500));
  EXPECT_EQ(Newest(), Texts{"a"});
}

class OpenOtherFile : public OpenFile {
 protected:
  OpenOtherFile() : first(configuration.logFile), other(directory.File("Other.dat")) {
    configuration.logFile = other;
    MakeFile(10, {Message("of the other file", At(11, 0))});
    configuration.logFile = first;
    Open();
    Submit("of the first file", At(12, 0));
    Flush();
    reader = std::make_unique<TestReader>(names);
    Close();
    configuration.logFile = other;
  }

  // Otherwise the messages would be stored in the first file.
  void ExpectTheOtherIsServed() {
    Submit("new", At(13, 0));
    Flush();
    EXPECT_EQ(Newest(), (Texts{"new", "of the other file"}));
    configuration.logFile = first;
    EXPECT_EQ(Newest(), Texts{"of the first file"});
    configuration.logFile = other;
  }

  const std::string first;
  const std::string other;
  std::unique_ptr<TestReader> reader;  // has the first file mapped
};

TEST_F(OpenOtherFile, IsNotServedFromTheSectionOfTheFirstOnceItsReadersHaveLeft) {
  WhileItLeaves(reader, [&] { Open(); });
  ExpectTheOtherIsServed();
}

TEST_F(OpenOtherFile, IsOpenedAtTheNextStartWhenReadersWereTooSlowForThisOne) {
  Open();
  Close();
  WhileItLeaves(reader, [&] { Open(); });
  ExpectTheOtherIsServed();
}

// Path and capacity change at once, and a reader keeps the section of the first file.
class OpenOtherSize : public OpenFile {
 protected:
  // `firstCapacity` messages in a full first file, `otherCapacity` in a full other one, which is then to be
  // opened with `capacity`.
  void Expect(std::uint32_t firstCapacity, std::int32_t otherCapacity, std::uint32_t capacity, bool opens) {
    const std::string first = configuration.logFile;
    const std::string other = directory.File("Other.dat");
    configuration.logFile = other;
    const auto numbered = [](std::size_t count) {
      std::vector<LogMessageBody> bodies;
      for (std::size_t i = 0; i < count; ++i)
        bodies.push_back(Message(std::to_string(i), At(11, static_cast<int>(i))));
      return bodies;
    };
    if (otherCapacity > 0) MakeFile(otherCapacity, numbered(static_cast<std::size_t>(otherCapacity)));
    const std::string otherBefore = otherCapacity > 0 ? Bytes() : "";
    configuration.logFile = first;
    MakeFile(static_cast<std::int32_t>(firstCapacity), numbered(firstCapacity));
    SetCapacity(firstCapacity);
    Open();
    const TestReader reader(names);
    Close();
    const Texts firstBefore = Newest();
    ASSERT_EQ(firstBefore.size(), firstCapacity);

    configuration.logFile = other;
    SetCapacity(capacity);
    const std::string failure = FailureOf([&] { Open(); });
    EXPECT_EQ(failure.empty(), opens) << failure;
    const std::string refusal =
        "Failed to open a file mapping, CreateFileMapping() failed - Error code : 183 - ";
    EXPECT_EQ(failure.substr(0, refusal.size()), opens ? "" : refusal);
    Close();
    if (otherCapacity > 0) {
      EXPECT_EQ(Bytes(), otherBefore);
    }
    configuration.logFile = first;
    EXPECT_EQ(Newest(), firstBefore);
  }
};

TEST_F(OpenOtherSize, ALargerFileWithTheFormerCapacityIsRefusedAndBothStay) {
  Expect(10, 20, 10, false);
}

TEST_F(OpenOtherSize, ASmallerFileWithTheFormerCapacityStaysWhileTheFormerIsServed) {
  Expect(20, 10, 20, true);
}

TEST_F(OpenOtherSize, AFormerFileOfAnotherCapacityIsRefusedAndBothStay) {
  Expect(20, 20, 10, false);
}

TEST_F(OpenOtherSize, AFormerFileOfAnotherCapacityThanTheOtherAlreadyHasIsRefusedAndBothStay) {
  Expect(20, 10, 10, false);
}

TEST_F(OpenOtherSize, AFormerFileIsServedAsItIsWhereTheOtherIsNew) {
  Expect(20, 0, 20, true);
}

TEST_F(OpenOtherSize, AFormerFileOfAnotherCapacityIsNotEmptiedWhereTheOtherIsNew) {
  Expect(20, 0, 10, false);
}

TEST_F(OpenFile, AReaderThatNeverLeavesDoesNotKeepTheServerFromStartingAtAnotherPath) {
  Open();
  const TestReader reader(names);
  Close();
  configuration.logFile = directory.File("Other.dat");
  MakeFile(10, {});
  EXPECT_EQ(FailureOf([&] { Open(); }), "");
  EXPECT_TRUE(server->VerifyIntegrity());
}

TEST_F(OpenFile, ACloseByAnotherThreadEndsTheWaitForReaders) {
  Open();
  const TestReader reader(names);
  Close();
  SetCapacity(50);
  std::string failure;
  std::thread opening([&] { failure = FailureOf([&] { Open(); }); });
  // From its last size on the open waits for the reader.
  EXPECT_TRUE(TestSupport::WaitUntil([&] { return Bytes().size() == 240U + 560U * 50U; }));
  EXPECT_EQ(FailureOf([&] { Close(0); }), "");
  opening.join();
  EXPECT_EQ(failure, "Failed to grab write access, some handles or pointers are invalid");
}

// As a stop does that no longer waits for a restart that hangs.
TEST_F(OpenFile, ACloseByAnotherThreadEndsAnOpenAndLeavesNothingBehind) {
  Open();
  auto reader = std::make_unique<TestReader>(names);
  Close();
  SetCapacity(50);
  std::atomic<bool> ended{false};
  std::string failure;
  std::thread opening([&] {
    failure = FailureOf([&] { Open(); });
    ended = true;
  });
  std::set<std::string> closeFailures;
  while (!ended) {
    closeFailures.insert(FailureOf([&] { Close(0); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  opening.join();
  closeFailures.erase("");
  // A close that comes in the middle of the open finds a part of the objects, or a view of the old size.
  for (const std::string& closing : closeFailures) {
    EXPECT_TRUE(closing.ends_with("some handles or pointers are invalid") ||
                closing.starts_with("Failed to force log file changes to be saved to disk"))
        << closing;
  }
  EXPECT_NE(failure, "");  // the step that found the objects closed
  reader.reset();
  EXPECT_EQ(OpenFileMappingA(FILE_MAP_READ, FALSE, names.map.c_str()), nullptr);
  Open();
  ExpectEmpty(Header(), 50);
}

// A reader that enters between the mapping and the check costs the file. Here a count of 1 simulates it,
// since it would keep the objects of the last open alive.
TEST_F(OpenFile, AReaderInsideDuringTheCheckFailsIt) {
  Open();
  Submit("a", At(12, 0));
  Flush();
  TestReader reader(names);
  ASSERT_TRUE(reader.Enter(1000));
  EXPECT_FALSE(server->VerifyIntegrity());
  reader.Leave();
  EXPECT_TRUE(server->VerifyIntegrity());
}

TEST_F(OpenFile, ChecksAndReformatsNeedAnOpenFile) {
  EXPECT_EQ(FailureOf([&] { server->VerifyIntegrity(); }),
            "Failed to verify log file integrity, some handles or pointers are invalid");
  EXPECT_EQ(FailureOf([&] { server->Reformat(10); }),
            "Failed to reformat log file, some handles or pointers are invalid");
}

// Close -------------------------------------------------------------------------------------------------

TEST_F(CloseFile, TakesTheRunningFlagBackAndLeavesTheMessages) {
  Open();
  Submit("a", At(12, 0));
  Flush();
  EXPECT_EQ(Header().serverRunning, 1);
  Close();
  EXPECT_EQ(Header().serverRunning, 0);
  EXPECT_EQ(Newest(), (Texts{"a"}));
}

TEST_F(CloseFile, OfNothingDoesNothing) {
  EXPECT_NO_THROW(Close());
  Open();
  Close();
  EXPECT_NO_THROW(Close());
}

// The change itself waits for a write access of another file; the count says only that there may be one.
TEST_F(CloseFile, WithMessagesPendingRaisesTheChangeCountWithoutAChange) {
  Open();
  const std::uint64_t before = Header().changeCount;
  Submit("never stored", At(12, 0));
  Close();
  EXPECT_EQ(Header().changeCount, before + 1);
  EXPECT_EQ(Header().messageCount, 0);
}

TEST_F(CloseFile, ForcesItsWayPastADeadReaderAndSaysSo) {
  Open();
  TestReader reader(names);
  ASSERT_TRUE(reader.Enter(1000));
  const TestSupport::DiagnosticLogCapture log;
  Close(50);
  // The read-wait event was signalled, so no access was forced; the wait for the reader's own event ran out.
  EXPECT_EQ(log.Texts(), Texts{});
  EXPECT_EQ(Header().serverRunning, 0);
  EXPECT_EQ(Header().readCount, 0);
}

TEST_F(CloseFile, ForcesItsWayPastAWriterThatDiedAndSaysSo) {
  Open();
  TestReader reader(names);
  reader.ResetReadWait();
  const TestSupport::DiagnosticLogCapture log;
  Close(50);
  EXPECT_EQ(log.Texts(), (Texts{"File access rights timed out, forcing access."}));
  EXPECT_TRUE(reader.WaitForReadWait(0));
}

TEST_F(CloseFile, AViewSmallerThanTheCapacityCannotBeFlushedButEverythingIsClosed) {
  Open();
  SetCapacity(100000);
  EXPECT_EQ(SentenceOf([&] { Close(); }),
            "Failed to force log file changes to be saved to disk, FlushViewOfFile() failed in CloseFile()");
  SetCapacity(10);
  EXPECT_NO_THROW(Close());
  EXPECT_EQ(Header().serverRunning, 0);
  Timeout timeout(0xFFFFFFFEU);
  EXPECT_TRUE(server->WaitUntilFree(timeout));
}

// Waiting for the free file -----------------------------------------------------------------------------

TEST_F(WaitUntilFree, AFileThatNoProcessHasOpenIsFree) {
  TestSupport::WriteBytes(configuration.logFile, "x");
  Timeout timeout(5000);
  EXPECT_TRUE(server->WaitUntilFree(timeout));
}

TEST_F(WaitUntilFree, AMissingFileOrDirectoryIsFree) {
  Timeout timeout(5000);
  EXPECT_TRUE(server->WaitUntilFree(timeout));
  configuration.logFile = directory.File("missing\\Logs.dat");
  EXPECT_TRUE(server->WaitUntilFree(timeout));
}

TEST_F(WaitUntilFree, WithTheTimeOverItDoesNotTry) {
  // Opening a directory would be an error.
  configuration.logFile = directory.Path();
  EXPECT_FALSE(server->WaitUntilFree(Timeout::Immediate));
}

// A program that reads the file, as one that copies it does.
class FileInUse {
 public:
  explicit FileInUse(const std::string& path)
      : handle(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)) {}
  ~FileInUse() { CloseHandle(handle); }
  FileInUse(const FileInUse&) = delete;
  FileInUse& operator=(const FileInUse&) = delete;

 private:
  HANDLE handle;
};

TEST_F(WaitUntilFree, AFileInUseIsWaitedForUntilTheTimeIsOver) {
  Open();
  Close();
  const FileInUse inUse(configuration.logFile);
  Timeout timeout(200);
  EXPECT_FALSE(server->WaitUntilFree(timeout));
  EXPECT_TRUE(timeout.Expired());
}

TEST_F(WaitUntilFree, EndsWhenTheFileIsNoLongerInUse) {
  Open();
  Close();
  auto inUse = std::make_unique<FileInUse>(configuration.logFile);
  std::thread leaving([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    inUse.reset();
  });
  Timeout timeout(20000);
  EXPECT_TRUE(server->WaitUntilFree(timeout));
  leaving.join();
}

TEST_F(WaitUntilFree, AReaderThatHasTheFileMappedIsWaitedForUnderWineOnly) {
#ifdef TAMLOG_WINDOWS_WORLD
  constexpr bool counts = false;
#else
  const bool counts = GetProcAddress(GetModuleHandleA("ntdll"), "wine_get_version") != nullptr;
#endif
  Open();
  const TestReader reader(names);
  Close();
  Timeout timeout(200);
  EXPECT_EQ(server->WaitUntilFree(timeout), !counts);
}

TEST_F(WaitUntilFree, AnyOtherErrorIsReported) {
  const std::pair<std::string, std::string> refused[] = {{directory.Path(), "5"},
                                                         {directory.File("*.dat"), "123"}};
  for (const auto& [path, error] : refused) {
    configuration.logFile = path;
    Timeout timeout(5000);
    const std::string failure = FailureOf([&] { server->WaitUntilFree(timeout); });
    EXPECT_TRUE(failure.starts_with(
        "Failed to wait for log file to be free, CreateFile failed() - Error code : " + error + " - "))
        << failure;
  }
}

// The lock is released between two tries: a stop does not block pipe requests while it waits.
TEST_F(WaitUntilFree, LetsOthersAtTheConfigurationMeanwhile) {
  Open();
  Close();
  const FileInUse inUse(configuration.logFile);
  std::thread waiting([&] {
    Timeout timeout(1000);
    server->WaitUntilFree(timeout);
  });
  for (int i = 0; i < 20; ++i) {
    const TamLogUtil::Mutex::Access access(configLock, Timeout::Infinite);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  waiting.join();
}

}  // namespace
}  // namespace StoreTest
