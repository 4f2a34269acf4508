#include "client/file/log_recognition.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "client/file/log_file_reader.h"
#include "client/file/log_file_repair.h"
#include "client/file/log_file_verify.h"
#include "client/message/log_message_view.h"
#include "tests/client/file/damaged_files.h"
#include "tests/support/files.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"

namespace {

using std::string_literals::operator""s;
using TamLogClient::LogFileImage;
using TamLogClient::LogMessageView;
using TamLogClient::PlanRepair;
using TamLogClient::Status;
using TamLogClient::WhyNoLog;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;

std::string Why(const std::string& bytes) {
  return WhyNoLog(LogFileImage(bytes));
}

std::string MakeLog(std::int32_t capacity, int messages, const std::string& source = "Stage") {
  RingModel log(capacity);
  for (int i = 0; i < messages; ++i) log.Submit(MakeBody(i * 1000, std::to_string(i), source));
  log.Flush();
  return log.FileBytes();
}

TEST(LogRecognition, OtherFilesAreNamedByTheirBeginning) {
  const std::string rest(3000, '\x81');
  for (const auto& [begin, why] : {std::pair{"\x1f\x8b\x08"s, "it begins like gzip"},
                                   {"\xfd"s + "7zXZ\0"s, "it begins like xz"},
                                   {"PK\x03\x04"s, "it begins like zip"},
                                   {"MZ\x90"s, "it begins like a Windows program"},
                                   {std::string(600, '\0'), "it begins with zeros"},
                                   {"\xff\xfe"s, "it begins like UTF-16 text"},
                                   {"unknown \x01"s, "it has neither a log's header nor a message"}}) {
    EXPECT_EQ(Why(begin + rest), why);
  }
  EXPECT_EQ(Why(""), "it is empty");
  EXPECT_EQ(Why("x"), "it begins like text");
  EXPECT_EQ(Why(std::string(100, '\0')), "it begins with zeros");
  std::string lines;
  for (int i = 0; i < 500; ++i) lines += "2026-01-01 00:00:00.000 T1 Stage: line " + std::to_string(i) + "\n";
  EXPECT_EQ(Why(lines), "it begins like text");
}

TEST(LogRecognition, RandomBytesAreNoLog) {
  TamLogTest::Random random(11);
  for (int i = 0; i < 50; ++i) {
    std::string bytes(TamLogTest::Pick(random, 20000), '\0');
    const std::size_t below = i % 2 == 0 ? 256U : 3U;  // also files of small numbers
    for (char& byte : bytes) byte = static_cast<char>(TamLogTest::Pick(random, below));
    EXPECT_NE(Why(bytes), "") << i;
  }
}

TEST(LogRecognition, LogIsOneWithoutHeaderWithoutMessagesOrCut) {
  const std::string log = MakeLog(8, 6);
  EXPECT_EQ(Why(log), "");
  EXPECT_EQ(Why(MakeLog(8, 0)), "");
  EXPECT_EQ(Why(log.substr(0, 1000)), "");
  EXPECT_EQ(Why(log.substr(0, 200)), "") << "cut within the lock names";
  EXPECT_EQ(Why(log.substr(kSlotsOffset)), "");
  EXPECT_EQ(Why(log.substr(kSlotsOffset + 77)), "");
  EXPECT_EQ(Why(std::string(kSlotsOffset, '\0') + log.substr(kSlotsOffset)), "");
  std::string overwritten = log;
  overwritten.replace(0, 900, std::string(900, '\x1f'));
  EXPECT_EQ(Why(overwritten), "");
  EXPECT_EQ(Why(MakeLog(8, 1, "").substr(kSlotsOffset)), "it has neither a log's header nor a message")
      << "one date among other bytes is no evidence";
}

TEST(LogRecognition, OneDamagedByChanceIsStillALog) {
  TamLogTest::Random random(3);
  for (std::size_t i = 0; i < 2000; ++i) {
    std::string bytes =
        TamLogTest::RandomLogFile(random, static_cast<std::int32_t>(5 + TamLogTest::Pick(random, 30)));
    const auto bodies = TamLogTest::BodiesInRing(bytes);
    TamLogTest::Inflict(static_cast<TamLogTest::Damage>(i % TamLogTest::kDamages), random, bytes);
    std::size_t intact = 0;
    for (const std::string& body : bodies) intact += bytes.find(body) == std::string::npos ? 0U : 1U;
    if (intact >= 2) {
      EXPECT_EQ(Why(bytes), "") << i;
    }
  }
}

class FoundLogs : public testing::Test {
 protected:
  static std::string Texts(const std::string& bytes, const TamLogClient::RepairPlan& plan) {
    const LogFileImage image(bytes);
    std::string texts;
    for (const auto& saved : plan.oldestFirst) texts += LogMessageView(SavedMessageOf(image, saved)).Text();
    return texts;
  }
  std::string Shown(const std::string& bytes) {
    TestSupport::WriteBytes(folder.File("log"), bytes);
    const auto contents = TamLogClient::ReadLogFile(folder.File("log"));
    EXPECT_EQ(contents.status, Status::Damaged);
    std::string texts;
    for (const std::uint32_t slot : OrderMessages(contents.snapshot).oldestFirst)
      texts += LogMessageView(contents.snapshot.slots[slot]).Text();
    return texts;
  }

  TestSupport::TempDir folder;
};

TEST_F(FoundLogs, TwoLogsOneBehindTheOtherAreBothSaved) {
  RingModel later(4);
  for (int i = 0; i < 6; ++i) later.Submit(MakeBody(50000 + i, std::string(1, "abcdef"[i])));
  later.Flush();
  for (const std::string& between : {std::string(), std::string(100, 'x')}) {
    const std::string bytes = MakeLog(8, 6) + between + later.FileBytes();
    const auto plan = PlanRepair(LogFileImage(bytes));
    EXPECT_EQ(Texts(bytes, plan), "012345cdef") << between.size();
    ASSERT_EQ(plan.logs.size(), 2U);
    EXPECT_EQ(plan.logs[1].offset, LogFileSize(8) + between.size());
    EXPECT_EQ(plan.logs[1].header.maxMessages, 4);
    EXPECT_EQ(plan.lost, 0U);
    EXPECT_EQ(plan.capacity, 10U);
    EXPECT_EQ(Shown(bytes), "012345cdef");
  }
}

TEST_F(FoundLogs, UnusedSlotsOfALogWithoutHeaderAreNotLost) {
  std::string bytes = MakeLog(100, 6);
  bytes[11] = '\x80';
  const auto plan = PlanRepair(LogFileImage(bytes));
  EXPECT_EQ(Texts(bytes, plan), "012345");
  EXPECT_FALSE(plan.headerTrusted);
  EXPECT_EQ(plan.lost, 0U);
  EXPECT_EQ(Shown(bytes), "012345");
}

TEST_F(FoundLogs, CapacityIsNeverAboveTheLimitUnlessTheFileHasMore) {
  std::string bytes = MakeLog(8, 6);
  const std::int32_t huge = 824194098;
  std::memcpy(bytes.data() + offsetof(LogFileHeader, maxMessages), &huge, sizeof(huge));
  auto plan = PlanRepair(LogFileImage(bytes));
  EXPECT_EQ(plan.capacity, 8U) << "that of the file's size";
  EXPECT_EQ(plan.lost, 0U);
  const std::string path = folder.File("sparse");
  TestSupport::WriteBytes(path, bytes);
  std::filesystem::resize_file(path, LogFileSize(1500000));
  TamLogClient::FileBytes file;
  ASSERT_EQ(file.Open(path), Status::Ok);
  EXPECT_EQ(PlanRepair(LogFileImage(file)).capacity, 1000000U);
}

}  // namespace
