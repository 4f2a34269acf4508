// Files of more than 2 GiB, where 32-bit sizes and offsets end, and of more than 4 GiB. They are sparse: only
// some pages of them exist. They are read in pieces, so the memory needed does not grow with the file.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "client/file/log_file_reader.h"
#include "client/file/log_file_repair.h"
#include "client/file/log_file_scan.h"
#include "client/file/log_file_tail.h"
#include "client/file/log_file_verify.h"
#include "client/file/log_recognition.h"
#include "client/message/log_message_view.h"
#include "tests/support/peak_memory.h"
#include "tests/support/ring_model.h"
#include "tests/support/sparse_file.h"
#include "tests/support/temp_dir.h"

namespace {

using TamLogClient::FileBytes;
using TamLogClient::LogFileImage;
using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;
using TamLogTest::MakeBody;

constexpr std::uint64_t kGigabyte = std::uint64_t{1} << 30U;
constexpr std::int32_t kMessages = 100;

// A log with its messages in the last 50 slots and in the first 50.
class BigFile : public testing::TestWithParam<std::uint64_t> {
 protected:
  BigFile() : capacity(static_cast<std::int32_t>((GetParam() - kSlotsOffset) / sizeof(LogMessage))) {
    header.maxMessages = capacity;
    header.messageCount = kMessages;
    header.nextSlot = kMessages / 2;
    header.changeCount = 2;
    header.rewriteCount = 1;
    header.nextSequence = kMessages;
    TestSupport::MakeSparseFile(path, LogFileSize(static_cast<std::uint64_t>(capacity)));
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.write(reinterpret_cast<const char*>(&header), sizeof(header));
    for (std::int32_t i = 0; i < kMessages; ++i) {
      LogMessage message{};
      message.sequence = static_cast<std::uint64_t>(i);
      message.body = MakeBody(i * 1000, std::to_string(i));
      const std::int64_t slot = (std::int64_t{i} + capacity - kMessages / 2) % capacity;
      file.seekp(static_cast<std::streamoff>(LogFileImage::OffsetOf(static_cast<std::uint64_t>(slot))));
      file.write(reinterpret_cast<const char*>(&message), sizeof(message));
      texts += std::to_string(i) + " ";
    }
    EXPECT_TRUE(file.good());
  }

  void WriteCount(std::int32_t count) {
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(offsetof(LogFileHeader, messageCount));
    file.write(reinterpret_cast<const char*>(&count), sizeof(count));
  }

  static std::string Texts(const LogSnapshot& snapshot) {
    std::string all;
    for (const std::uint32_t slot : OrderMessages(snapshot).oldestFirst)
      all += std::string(LogMessageView(snapshot.slots[slot]).Text()) + " ";
    return all;
  }
  static std::string Texts(const std::vector<LogMessage>& messages) {
    std::string all;
    for (const LogMessage& message : messages) all += std::string(LogMessageView(message).Text()) + " ";
    return all;
  }

  // A tenth of the smallest file, and no multiple of what a test needs for itself.
  static void ExpectLittleMemory() { EXPECT_LT(TestSupport::PeakMemory(), 300U << 20U); }

  TestSupport::TempDir folder;
  std::string path = folder.File("big.dat");
  std::int32_t capacity;
  LogFileHeader header{};
  std::string texts;
};

TEST_P(BigFile, IsReadInEveryWay) {
  const auto contents = TamLogClient::ReadLogFile(path);
  EXPECT_EQ(contents.status, Status::Ok) << contents.remark;
  EXPECT_EQ(Texts(contents.snapshot), texts);
  TamLogClient::LogFileScan scan;
  ASSERT_TRUE(scan.Open(path));
  std::vector<LogMessage> all(kMessages);
  ASSERT_TRUE(scan.Read(0, all));
  EXPECT_EQ(Texts(all), texts);
  const auto survey = scan.Survey();
  ASSERT_TRUE(survey.has_value());
  EXPECT_TRUE(survey->inOrder);
  EXPECT_EQ(survey->doubtful, 0U);
  TamLogClient::LogTail tail;
  ASSERT_TRUE(TamLogClient::ReadLogFileTail(path, 3, tail));
  EXPECT_EQ(Texts(tail.messages), "97 98 99 ");
  ExpectLittleMemory();
}

TEST_P(BigFile, IsVerifiedWithoutDamage) {
  FileBytes file;
  ASSERT_EQ(file.Open(path), Status::Ok);
  const LogFileImage image(file);
  EXPECT_EQ(WhyNoLog(image), "");
  const auto report = VerifyLogFile(image);
  EXPECT_TRUE(report.findings.empty());
  EXPECT_TRUE(report.Accepted());
  EXPECT_EQ(report.slotsThere, static_cast<std::uint64_t>(capacity));
  ExpectLittleMemory();
}

TEST_P(BigFile, IsRepairedWhateverItsHeaderSays) {
  for (const std::int32_t count : {kMessages, -1}) {
    WriteCount(count);
    FileBytes file;
    ASSERT_EQ(file.Open(path), Status::Ok);
    const LogFileImage image(file);
    EXPECT_EQ(WhyNoLog(image), "");
    const auto plan = PlanRepair(image);
    EXPECT_EQ(plan.headerTrusted, count > 0);
    EXPECT_EQ(plan.lost, 0U);
    EXPECT_EQ(plan.capacity, count > 0 ? static_cast<std::uint32_t>(capacity) : 1000000U);
    std::vector<LogMessage> saved;
    for (const auto& message : plan.oldestFirst) saved.push_back(SavedMessageOf(image, message));
    EXPECT_EQ(Texts(saved), texts) << count;
    const auto contents = TamLogClient::ReadLogFile(path);
    EXPECT_EQ(Texts(contents.snapshot), texts) << count;
  }
  ExpectLittleMemory();
}

TEST_P(BigFile, OfZerosIsNoLog) {
  const std::string zeros = folder.File("zeros.dat");
  TestSupport::MakeSparseFile(zeros, GetParam());
  const auto contents = TamLogClient::ReadLogFile(zeros);
  EXPECT_EQ(contents.status, Status::NotALog);
  EXPECT_EQ(contents.remark, "it begins with zeros");
  ExpectLittleMemory();
}

INSTANTIATE_TEST_SUITE_P(Sizes, BigFile, testing::Values(3 * kGigabyte, 5 * kGigabyte));

}  // namespace
