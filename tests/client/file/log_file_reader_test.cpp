#include "client/file/log_file_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "client/file/log_file_image.h"
#include "client/file/log_file_verify.h"
#include "client/message/log_message_view.h"
#include "tests/client/file/damaged_files.h"
#include "tests/support/log_bytes.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::LogFileContents;
using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogClient::ReadLogFile;
using TamLogClient::Status;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;

class LogFileReaderTest : public testing::Test {
 protected:
  LogFileReaderTest() {
    const auto* const info = testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = "tamlog-\xC3\xA4-" + std::string(info->name());
    file = std::filesystem::temp_directory_path() / std::u8string(name.begin(), name.end());
    const std::u8string utf8 = file.u8string();
    path.assign(utf8.begin(), utf8.end());
    for (int i = 0; i < 6; ++i) log.Submit(MakeBody(i, std::to_string(i)));
    log.Flush();
    Render(log.Snapshot());
  }
  ~LogFileReaderTest() override {
    std::error_code error;
    std::filesystem::remove(file, error);
  }

  void Render(const LogSnapshot& snapshot) {
    bytes = TestSupport::LogFileBytes(snapshot.header, snapshot.slots);
  }

  LogFileContents Read() {
    std::ofstream(file, std::ios::binary) << bytes;
    return ReadLogFile(path);
  }

  static std::string Texts(const LogSnapshot& snapshot) {
    std::string texts;
    for (const std::uint32_t slot : OrderMessages(snapshot).oldestFirst) {
      texts += LogMessageView(snapshot.slots[slot]).Text();
    }
    return texts;
  }

  RingModel log{8};
  std::string bytes;
  std::filesystem::path file;
  std::string path;  // the same, in UTF-8
};

TEST_F(LogFileReaderTest, SoundFileGivesItsMessages) {
  const auto contents = Read();
  EXPECT_EQ(contents.status, Status::Ok) << contents.remark;
  EXPECT_EQ(Texts(contents.snapshot), "012345");
}

TEST_F(LogFileReaderTest, MissingFileAndDirectoryHaveStatusesOfTheirOwn) {
  EXPECT_EQ(ReadLogFile(path + "-missing").status, Status::NotFound);
  EXPECT_EQ(ReadLogFile(std::filesystem::temp_directory_path().string()).status, Status::NotAFile);
  std::string read = "before";
  EXPECT_EQ(TamLogClient::ReadFileBytes(path + "-missing", read), Status::NotFound);
  EXPECT_EQ(TamLogClient::ReadFileBytes(std::filesystem::temp_directory_path().string(), read),
            Status::NotAFile);
  EXPECT_EQ(read, "");
}

TEST_F(LogFileReaderTest, FileCutAnywhereGivesWhatIsReadable) {
  const std::string whole = bytes;
  for (std::size_t length = 0; length < whole.size(); length += length < 1000 ? 7 : 101) {
    bytes = whole.substr(0, length);
    const auto contents = Read();
    EXPECT_EQ(contents.status, length < sizeof(LogFileHeader) ? Status::NotALog : Status::Damaged) << length;
    EXPECT_FALSE(contents.remark.empty());
    const std::size_t slots = length < kSlotsOffset ? 0 : (length - kSlotsOffset) / sizeof(LogMessage);
    EXPECT_EQ(Texts(contents.snapshot), std::string("012345").substr(0, slots)) << length;
  }
}

TEST_F(LogFileReaderTest, ShortFileSaysHowManySlotsAreThere) {
  bytes.resize(kSlotsOffset + 3 * sizeof(LogMessage) + 5);
  EXPECT_EQ(Read().remark, "the file is too short: it has 3 of 8 slots");
  bytes.resize(100);
  EXPECT_EQ(Read().remark, "the file ends within its header");
}

TEST_F(LogFileReaderTest, LongFileIsReadWithTheHeadersCapacity) {
  bytes.append(777, 'x');
  const auto contents = Read();
  EXPECT_EQ(contents.status, Status::Damaged);
  EXPECT_EQ(contents.remark, "the file's size of 5497 bytes does not fit its capacity of 8 messages");
  EXPECT_EQ(Texts(contents.snapshot), "012345");
}

// Readers and the verifier must never disagree whether a file is damaged.
TEST_F(LogFileReaderTest, VerdictIsThatOfTheVerifier) {
  TamLogTest::Random random(17);
  for (std::size_t i = 0; i < 1500; ++i) {
    bytes = TamLogTest::RandomLogFile(random, static_cast<std::int32_t>(1 + TamLogTest::Pick(random, 20)));
    if (i % 10 != 0)
      TamLogTest::Inflict(static_cast<TamLogTest::Damage>(i % TamLogTest::kDamages), random, bytes);
    const auto contents = Read();
    if (contents.status == Status::NotALog) continue;
    const bool verified = VerifyLogFile(TamLogClient::LogFileImage(bytes)).Damage() > 0;
    EXPECT_EQ(contents.status != Status::Ok || OrderMessages(contents.snapshot).damaged > 0, verified)
        << i << ": " << contents.remark;
    EXPECT_EQ(TamLogClient::JudgeLogFile(path).status, contents.status) << i;
    EXPECT_EQ(TamLogClient::JudgeLogFile(path).remark, contents.remark) << i;
  }
}

TEST_F(LogFileReaderTest, HugeClaimsOfADamagedHeaderCostNothing) {
  LogSnapshot snapshot = log.Snapshot();
  snapshot.header.maxMessages = 2147483647;
  snapshot.header.messageCount = 2147483647;
  Render(snapshot);
  const auto contents = Read();
  EXPECT_EQ(contents.status, Status::Damaged);
  EXPECT_EQ(Texts(contents.snapshot), "012345") << "slots that hold no message are not shown";
}

TEST_F(LogFileReaderTest, EveryFlippedBitOfTheHeaderIsSurvived) {
  const std::string whole = bytes;
  for (std::size_t bit = 0; bit < sizeof(LogFileHeader) * 8; ++bit) {
    bytes = whole;
    bytes[bit / 8] = static_cast<char>(static_cast<unsigned char>(bytes[bit / 8]) ^ (1U << (bit % 8)));
    const auto contents = Read();
    EXPECT_LE(contents.snapshot.slots.size(), 8U) << bit;
    EXPECT_LE(contents.snapshot.RingOrder().size(), contents.snapshot.slots.size()) << bit;
    if (contents.remark.starts_with("the header is not valid")) {
      EXPECT_EQ(Texts(contents.snapshot), "012345") << bit;
    }
  }
}

}  // namespace
