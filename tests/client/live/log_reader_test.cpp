#include "client/live/log_reader.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "client/live/guarded_copy.h"
#include "client/log/log_follower.h"
#include "client/message/log_message_view.h"
#include "client/message/win32.h"
#include "tests/client/live/served_log.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::LogMessageView;
using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;
using TamLogTest::ServedLog;

std::string Texts(const LogSnapshot& snapshot) {
  std::string texts;
  for (const std::uint32_t slot : OrderMessages(snapshot).oldestFirst) {
    texts += LogMessageView(snapshot.slots[slot]).Text();
  }
  return texts;
}

class LogReaderTest : public testing::Test {
 protected:
  LogReaderTest() {
    Add("abc");
    shared = std::make_unique<ServedLog>(log.Snapshot());
  }

  // After every test: no reader is inside, and the next writer can enter at once.
  ~LogReaderTest() override {
    if (!checkRest) return;
    EXPECT_EQ(shared->ReadCount(), 0);
    EXPECT_TRUE(shared->WriteWaitIsSignalled());
    EXPECT_TRUE(shared->HeaderLockIsFree());
  }

  void Add(const std::string& letters) {
    for (const char letter : letters) log.Submit(MakeBody(now++, std::string(1, letter)));
    log.Flush();
  }

  RingModel log{8};
  std::unique_ptr<ServedLog> shared;
  LogReader reader;
  LogSnapshot snapshot;
  int now = 0;
  bool checkRest = true;
};

TEST_F(LogReaderTest, SnapshotHoldsTheMessagesAndTouchesNothing) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  ASSERT_EQ(reader.Snapshot(snapshot), Status::Ok);
  EXPECT_EQ(Texts(snapshot), "abc");
  EXPECT_EQ(snapshot.header.readCount, 0);  // nobody was inside
  EXPECT_EQ(shared->ReadCount(), 0);
}

TEST_F(LogReaderTest, LaterSnapshotsFollowTheLog) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  ASSERT_EQ(reader.Snapshot(snapshot), Status::Ok);
  Add("de");
  ASSERT_TRUE(shared->Write(log.Snapshot()));
  ASSERT_EQ(reader.Snapshot(snapshot), Status::Ok);
  EXPECT_EQ(Texts(snapshot), "abcde");
  Add("fghij");  // wraps
  ASSERT_TRUE(shared->Write(log.Snapshot()));
  ASSERT_EQ(reader.Snapshot(snapshot), Status::Ok);
  EXPECT_EQ(Texts(snapshot), "cdefghij");
  log.Submit(MakeBody(0, "A"));  // rewrites all
  log.Flush();
  ASSERT_TRUE(shared->Write(log.Snapshot()));
  ASSERT_EQ(reader.Snapshot(snapshot), Status::Ok);
  EXPECT_EQ(Texts(snapshot), "cdefghij");
}

TEST_F(LogReaderTest, AnotherSnapshotObjectIsFilledWhole) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  ASSERT_EQ(reader.Snapshot(snapshot), Status::Ok);
  Add("d");
  ASSERT_TRUE(shared->Write(log.Snapshot()));
  LogSnapshot other;
  ASSERT_EQ(reader.Snapshot(other), Status::Ok);
  EXPECT_EQ(Texts(other), "abcd");
}

TEST_F(LogReaderTest, NothingSharedIsNotRunning) {
  EXPECT_EQ(reader.Open("Global\\TamLogTestNobodyHasThis"), Status::NotRunning);
  EXPECT_FALSE(reader.IsOpen());
  EXPECT_EQ(reader.Snapshot(snapshot), Status::NotRunning);
}

TEST_F(LogReaderTest, StoppedServerIsNotReadAndNothingStaysOpen) {
  shared->SetRunning(false);
  EXPECT_EQ(reader.Open(shared->MapName()), Status::NotRunning);
  shared->SetRunning(true);
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  shared->SetRunning(false);
  LogFileHeader header{};
  EXPECT_EQ(reader.Look(header), Status::NotRunning);
  EXPECT_FALSE(reader.IsOpen());
}

TEST_F(LogReaderTest, ClosedReaderLetsTheMappingGo) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  const std::string name = shared->MapName();
  reader.Close();
  shared.reset();
  checkRest = false;
  EXPECT_EQ(OpenFileMappingA(FILE_MAP_READ, FALSE, name.c_str()), nullptr);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

// The server may be opening the file again by then, and a reader inside during its check costs the whole log.
TEST_F(LogReaderTest, ReaderThatWaitedWhileTheServerStoppedLeavesWithoutReading) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  shared->CloseReadWait();
  Status status = Status::Ok;
  std::thread waiting([&] { status = reader.Snapshot(snapshot, 20000); });
  Sleep(100);
  shared->SetRunning(false);
  shared->OpenReadWait();
  waiting.join();
  EXPECT_EQ(status, Status::NotRunning);
  EXPECT_FALSE(reader.IsOpen());
  for (const LogMessage& slot : snapshot.slots) EXPECT_EQ(slot.body.text[0], '\0');
}

TEST_F(LogReaderTest, WriterInsideMakesItTimeOutAndLeavesTheCountAlone) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  shared->CloseReadWait();
  EXPECT_EQ(reader.Snapshot(snapshot, 50), Status::TimedOut);
  EXPECT_EQ(shared->ReadCount(), 0);
  shared->OpenReadWait();
  EXPECT_EQ(reader.Snapshot(snapshot), Status::Ok);
}

TEST_F(LogReaderTest, WriterThatWaitsForAReaderOfOthersIsStuck) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  shared->CloseReadWait();
  shared->SetReadCount(1);
  EXPECT_EQ(reader.Snapshot(snapshot, 50), Status::Stuck);
  EXPECT_EQ(shared->ReadCount(), 1);
  shared->SetReadCount(0);
  shared->OpenReadWait();
}

TEST_F(LogReaderTest, ReadersAndLocksOfOthersDoNotMatter) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  shared->TakeHeaderLock();
  for (const std::int32_t inside : {1, -1, 2147483647}) {
    shared->SetReadCount(inside);
    EXPECT_EQ(reader.Snapshot(snapshot), Status::Ok);
    EXPECT_EQ(Texts(snapshot), "abc");
    EXPECT_EQ(shared->ReadCount(), inside);
    EXPECT_FALSE(shared->HeaderLockIsFree());
  }
  shared->SetReadCount(0);
  shared->FreeHeaderLock();
}

TEST_F(LogReaderTest, LookThatTheServerDisturbedIsRepeated) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  std::string seen;
  EXPECT_EQ(reader.WithView(1000000,
                            [&](const TamLogClient::LogView& view) {
                              seen += std::to_string(view.Header().messageCount);
                              if (seen.size() > 1) return;
                              Add("d");
                              EXPECT_TRUE(shared->Write(log.Snapshot()));
                            }),
            Status::Ok);
  EXPECT_EQ(seen, "34");
}

// No budget is longer than the time in which a read can be consistent.
TEST_F(LogReaderTest, LookThatExceedsItsBudgetNeverCountsAndIsNotRepeated) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  for (const std::uint32_t budget : {1000U, 1000000U, 4294967295U}) {
    int looks = 0;
    const auto slow = [&](const TamLogClient::LogView& view) {
      ++looks;
      while (!view.BudgetIsSpent()) Sleep(1);
    };
    EXPECT_EQ(reader.WithView(budget, slow), Status::TimedOut) << budget;
    EXPECT_EQ(looks, 1) << budget;
  }
}

TEST_F(LogReaderTest, HeaderThatMakesNoSenseIsDamagedAndTheSlotsAreCopied) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  auto* const header = reinterpret_cast<LogFileHeader*>(shared->Bytes());
  header->nextSlot = 99;
  EXPECT_EQ(reader.Snapshot(snapshot), Status::Damaged);
  EXPECT_EQ(snapshot.slots.size(), 8U);
  for (const std::int32_t capacity : {0, -1, -2147483647, 9, 2147483647}) {
    header->nextSlot = 3;
    header->maxMessages = capacity;
    if (capacity == 9) continue;  // may be within the last page
    EXPECT_EQ(reader.Snapshot(snapshot), Status::Damaged) << capacity;
  }
}

TEST_F(LogReaderTest, SectionOfAnotherTimeIsTooSmallAndIsRefused) {
  const RingModel large(5000);
  ServedLog old(large.Snapshot(), LogFileSize(8));
  LogReader other;
  ASSERT_EQ(other.Open(old.MapName()), Status::Ok);
  EXPECT_EQ(other.Snapshot(snapshot), Status::Damaged);
  EXPECT_EQ(old.ReadCount(), 0);
}

// A sparse file costs its creator nothing, but its reader would have to copy all of it.
TEST_F(LogReaderTest, SectionLargerThanAServerMakesOneIsRefused) {
  constexpr std::int32_t kMost = 1000000;
  for (const std::int32_t slots : {kMost, kMost + 100}) {
    const ServedLog large(log.Snapshot(), LogFileSize(static_cast<std::uint64_t>(slots)));
    LogReader other;
    EXPECT_EQ(other.Open(large.MapName()), slots == kMost ? Status::Ok : Status::Damaged);
  }
}

TEST_F(LogReaderTest, MissingLockNamesMeanThatTheServerIsNotReady) {
  std::memset(shared->Bytes() + kLockNamesOffset, 0, sizeof(LockNames));
  EXPECT_EQ(reader.Open(shared->MapName()), Status::NotRunning);
  std::memset(shared->Bytes() + kLockNamesOffset, 'x', sizeof(LockNames));
  EXPECT_EQ(reader.Open(shared->MapName()), Status::NotRunning);
  EXPECT_FALSE(reader.IsOpen());
}

TEST_F(LogReaderTest, NothingOfTheLogCanBeWrittenThroughTheReadersView) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  // The reader's read-only view is somewhere in this process; find a mapped region of the log that is not
  // ours.
  int readOnly = 0;
  MEMORY_BASIC_INFORMATION region{};
  for (unsigned char* at = nullptr; VirtualQuery(at, &region, sizeof(region)) != 0;
       at = static_cast<unsigned char*>(region.BaseAddress) + region.RegionSize) {
    if (region.Type != MEM_MAPPED || region.State != MEM_COMMIT || region.BaseAddress == shared->Bytes())
      continue;
    if (std::memcmp(region.BaseAddress, shared->Bytes(), sizeof(LogFileHeader)) != 0) continue;
    EXPECT_EQ(region.Protect, static_cast<DWORD>(PAGE_READONLY));
    ++readOnly;
  }
  EXPECT_GE(readOnly, 1);
}

TEST_F(LogReaderTest, WriterNeverWaitsForReaders) {
  constexpr int kWrites = 300;
  std::atomic<bool> done{false};
  std::atomic<int> bad{0};
  std::atomic<const char*> worst{""};
  const auto read = [&] {
    LogReader own;
    LogSnapshot copy;
    if (own.Open(shared->MapName()) != Status::Ok) ++bad;
    while (!done) {
      const Status status = own.Snapshot(copy, 30000);
      if (status == Status::Ok) continue;
      ++bad;
      worst = StatusText(status);
    }
  };
  std::vector<std::jthread> readers;
  for (int i = 0; i < 3; ++i) readers.emplace_back(read);
  for (int i = 0; i < kWrites; ++i) {
    Add("x");
    EXPECT_TRUE(shared->Write(log.Snapshot(), 30000)) << "a reader stayed inside";
  }
  done = true;
  readers.clear();
  EXPECT_EQ(bad, 0) << worst;
}

TEST_F(LogReaderTest, FollowerOverTheReaderReturnsEachMessageOnce) {
  TamLogClient::LogFollower follower;
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  ASSERT_EQ(reader.Snapshot(snapshot), Status::Ok);
  follower.Start(snapshot);
  std::string given;
  for (const char* const letters : {"d", "ef", "ghijk", "l"}) {
    Add(letters);
    ASSERT_TRUE(shared->Write(log.Snapshot()));
    ASSERT_EQ(reader.Snapshot(snapshot), Status::Ok);
    for (const auto& message : follower.Next(snapshot, false).messages) {
      given += LogMessageView(snapshot.slots[message.slot]).Text();
    }
  }
  EXPECT_EQ(given, "defghijkl");
}

TEST(GuardedCopy, CopiesEveryLength) {
  std::string from(3000, '\0');
  for (std::size_t i = 0; i < from.size(); ++i) from[i] = static_cast<char>(i * 7);
  for (const std::size_t length : {0U, 1U, 7U, 8U, 48U, 560U, 3000U}) {
    std::string to(3000, 'z');
    EXPECT_EQ(TamLogClientGuardedCopy(to.data(), from.data(), length), 0U);
    EXPECT_EQ(to.substr(0, length), from.substr(0, length));
    EXPECT_EQ(to.find_first_not_of('z', length), std::string::npos);
  }
}

TEST(GuardedCopy, GathersWordsThatAreApart) {
  constexpr std::size_t kWordsApart = sizeof(LogMessage) / 8;
  std::vector<std::uint64_t> from(3 * kWordsApart + 1);
  for (std::size_t i = 0; i < from.size(); ++i) from[i] = i;
  std::vector<std::uint64_t> to(5, 7777);
  EXPECT_EQ(TamLogClientGuardedCopy(to.data(), from.data(), 4 * 8, sizeof(LogMessage)), 0U);
  EXPECT_EQ(to, (std::vector<std::uint64_t>{0, kWordsApart, 2 * kWordsApart, 3 * kWordsApart, 7777}));
  EXPECT_EQ(TamLogClientGuardedCopy(to.data(), nullptr, 0, sizeof(LogMessage)), 0U);
}

TEST(GuardedCopy, FaultBecomesItsCodeOnEitherSide) {
  constexpr std::size_t kPage = 4096;
  auto* const pages = static_cast<char*>(VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE, PAGE_NOACCESS));
  ASSERT_NE(VirtualAlloc(pages, kPage, MEM_COMMIT, PAGE_READWRITE), nullptr);
  std::string buffer(2 * kPage, 'a');
  constexpr std::uint32_t kAccessViolation = 0xC0000005U;
  for (int round = 0; round < 50; ++round) {
    EXPECT_EQ(TamLogClientGuardedCopy(buffer.data(), pages, 2 * kPage), kAccessViolation);
    EXPECT_EQ(TamLogClientGuardedCopy(pages, buffer.data(), 2 * kPage), kAccessViolation);
    EXPECT_EQ(TamLogClientGuardedCopy(pages, buffer.data(), kPage), 0U);
  }
  VirtualFree(pages, 0, MEM_RELEASE);
}

TEST_F(LogReaderTest, FaultWhileCopyingBecomesAStatus) {
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  // A larger log than one page, so that slots can be made unreadable while the header stays.
  RingModel large(64);
  for (int i = 0; i < 60; ++i) large.Submit(MakeBody(i, "m"));
  large.Flush();
  ServedLog many(large.Snapshot());
  LogReader other;
  ASSERT_EQ(other.Open(many.MapName()), Status::Ok);
  MEMORY_BASIC_INFORMATION region{};
  unsigned char* readersView = nullptr;
  for (unsigned char* at = nullptr; VirtualQuery(at, &region, sizeof(region)) != 0;
       at = static_cast<unsigned char*>(region.BaseAddress) + region.RegionSize) {
    const bool mapped =
        region.Type == MEM_MAPPED && region.State == MEM_COMMIT && region.Protect == PAGE_READONLY;
    if (!mapped || region.RegionSize < LogFileSize(64)) continue;
    if (std::memcmp(region.BaseAddress, many.Bytes(), LogFileSize(64)) != 0) continue;
    readersView = static_cast<unsigned char*>(region.BaseAddress);
  }
  ASSERT_NE(readersView, nullptr);
  DWORD before = 0;
  ASSERT_NE(VirtualProtect(readersView + 8192, 4096, PAGE_NOACCESS, &before), FALSE);
  EXPECT_EQ(other.Snapshot(snapshot), Status::InPage);
  EXPECT_EQ(many.ReadCount(), 0);
  EXPECT_TRUE(many.WriteWaitIsSignalled());
  ASSERT_NE(VirtualProtect(readersView + 8192, 4096, before, &before), FALSE);
  EXPECT_EQ(other.Snapshot(snapshot), Status::Ok);
}

}  // namespace
