// Reading a log file piece by piece, on files of several pieces, some of which are read while others are
// examined; and examining several parts of it at once.

#include "client/file/log_file_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/log_bytes.h"

namespace {

using TamLogClient::LogFileScan;

constexpr std::int32_t kCapacity = 12000;
constexpr std::int32_t kNextSlot = 3000;

class LogFileScanTest : public testing::Test {
 protected:
  // A full ring whose oldest message is in the middle; sequence numbers count from 1 in ring order, because 0
  // may also mean that a message has no number.
  LogFileScanTest() {
    LogFileHeader header{};
    header.messageCount = header.maxMessages = kCapacity;
    header.nextSlot = kNextSlot;
    std::vector<LogMessage> slots(kCapacity);
    for (std::int32_t i = 0; i < kCapacity; ++i) {
      LogMessage& slot = slots[static_cast<std::size_t>((kNextSlot + i) % kCapacity)];
      slot.sequence = static_cast<std::uint64_t>(i) + 1;
      slot.body.timestamp[0] = static_cast<std::int16_t>(i + 1);
    }
    TestSupport::WriteBytes(path, TestSupport::LogFileBytes(header, slots));
  }
  ~LogFileScanTest() override {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }

  // Reads on from a position, at most `most` messages.
  bool Scan(std::uint32_t from, std::size_t most = kCapacity) {
    seen.clear();
    return scan.ForEach(
        [this, most](const LogMessage& message) {
          seen.push_back(message.sequence - 1);
          return seen.size() < most;
        },
        from);
  }

  // Changes the message at a position of the ring order, in the file.
  void Change(std::uint32_t position, const std::function<void(LogMessage&)>& change) const {
    LogFileScan reading;
    LogMessage message{};
    ASSERT_TRUE(reading.Open(path) && reading.Read(position, {&message, 1}));
    change(message);
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    const std::uint32_t slot = (kNextSlot + position) % kCapacity;
    file.seekp(static_cast<std::streamoff>(kSlotsOffset + slot * sizeof(LogMessage)));
    file.write(reinterpret_cast<const char*>(&message), sizeof(message));
  }

  void ExpectSeen(std::uint64_t first, std::size_t count) const {
    ASSERT_EQ(seen.size(), count);
    for (std::size_t i = 0; i < count; ++i) ASSERT_EQ(seen[i], first + i);
  }

  std::string path = (std::filesystem::path(testing::TempDir()) /
                      (std::string("scan-") + testing::UnitTest::GetInstance()->current_test_info()->name()))
                         .string();
  LogFileScan scan;
  std::vector<std::uint64_t> seen;
};

TEST_F(LogFileScanTest, EveryMessageIsHandedOverOnceInRingOrder) {
  ASSERT_TRUE(scan.Open(path));
  EXPECT_TRUE(Scan(0));
  ExpectSeen(0, kCapacity);
}

TEST_F(LogFileScanTest, ReadingMayEndEarlyAndBeginAgainAnywhere) {
  ASSERT_TRUE(scan.Open(path));
  EXPECT_TRUE(Scan(0, 1));
  ExpectSeen(0, 1);
  EXPECT_TRUE(Scan(5000, 6000));
  ExpectSeen(5000, 6000);
  EXPECT_TRUE(Scan(kCapacity - 2));
  ExpectSeen(kCapacity - 2, 2);
  EXPECT_TRUE(Scan(kCapacity));
  ExpectSeen(0, 0);
}

TEST_F(LogFileScanTest, FileThatBecameShorterEndsTheReading) {
  ASSERT_TRUE(scan.Open(path));
  std::filesystem::resize_file(path, LogFileSize(kCapacity - 1));
  EXPECT_FALSE(Scan(0));
  ASSERT_LT(seen.size(), static_cast<std::size_t>(kCapacity - kNextSlot));
  ExpectSeen(0, seen.size());
}

TEST_F(LogFileScanTest, SurveyOfASoundFileFindsNothing) {
  ASSERT_TRUE(scan.Open(path));
  const auto survey = scan.Survey();
  ASSERT_TRUE(survey);
  EXPECT_TRUE(survey->inOrder);
  EXPECT_EQ(survey->damaged, 0U);
}

// Wherever the parts meet.
TEST_F(LogFileScanTest, SurveySeesAnyMessageThatIsOlderThanTheOneBeforeIt) {
  for (const std::uint32_t position :
       {1U, 511U, 512U, 2999U, 3000U, 3001U, 4000U, 4001U, 5999U, 6000U, 6001U, 6002U, 9000U, 9001U, 9002U,
        9003U, static_cast<std::uint32_t>(kCapacity) - 1}) {
    Change(position, [](LogMessage& message) { message.body.timestamp[0] -= 2; });
    LogFileScan changed;
    ASSERT_TRUE(changed.Open(path));
    const auto survey = changed.Survey();
    ASSERT_TRUE(survey);
    EXPECT_FALSE(survey->inOrder) << position;
    Change(position, [](LogMessage& message) { message.body.timestamp[0] += 1; });
    const auto same = changed.Survey();
    ASSERT_TRUE(same);
    EXPECT_TRUE(same->inOrder) << "equal times, " << position;
    Change(position, [](LogMessage& message) { message.body.timestamp[0] += 1; });
  }
}

TEST_F(LogFileScanTest, SurveyCountsTheMessagesThatBreakARule) {
  Change(0, [](LogMessage& message) { std::memset(message.body.source, 'x', kTextSize); });
  Change(7000, [](LogMessage& message) { std::memset(message.body.text, 'x', kTextSize); });
  Change(kCapacity - 1, [](LogMessage& message) { message.body.type = kMessageTypes; });
  // Bytes after the end of a text do not matter.
  Change(8000, [](LogMessage& message) {
    std::memset(message.body.text, 'x', kTextSize);
    message.body.text[10] = '\0';
  });
  ASSERT_TRUE(scan.Open(path));
  const auto survey = scan.Survey();
  ASSERT_TRUE(survey);
  EXPECT_EQ(survey->damaged, 3U);
  EXPECT_TRUE(survey->inOrder);
}

TEST_F(LogFileScanTest, SurveyOfAFileThatChangedMeanwhileIsNone) {
  ASSERT_TRUE(scan.Open(path));
  std::fstream(path, std::ios::in | std::ios::out | std::ios::binary).put('\x01');
  EXPECT_FALSE(scan.Survey());
  std::filesystem::resize_file(path, LogFileSize(kCapacity - 1));
  EXPECT_FALSE(scan.Survey());
}

}  // namespace
