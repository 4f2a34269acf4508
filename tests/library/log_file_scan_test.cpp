// Reading a log file piece by piece, on files of several pieces: the next one is read while the last is
// looked at.

#include "client/log_file_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using TamLogClient::LogFileScan;

constexpr std::int32_t kCapacity = 12000;
constexpr std::int32_t kNextSlot = 3000;

class LogFileScanTest : public testing::Test {
 protected:
  // A full ring whose oldest message is in the middle; sequence numbers count from 0 in ring order.
  LogFileScanTest() {
    LogFileHeader header{};
    header.messageCount = header.maxMessages = kCapacity;
    header.nextSlot = kNextSlot;
    std::vector<LogMessage> slots(kCapacity);
    for (std::int32_t i = 0; i < kCapacity; ++i) {
      slots[static_cast<std::size_t>((kNextSlot + i) % kCapacity)].sequence = static_cast<std::uint64_t>(i);
    }
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(&header), sizeof(header));
    file.write(std::string(sizeof(LockNames), '\0').data(), sizeof(LockNames));
    file.write(reinterpret_cast<const char*>(slots.data()),
               static_cast<std::streamsize>(slots.size() * sizeof(LogMessage)));
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
          seen.push_back(message.sequence);
          return seen.size() < most;
        },
        from);
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

}  // namespace
