#include "client/file/log_file_verify.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/client/file/damaged_files.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::FileFinding;
using TamLogClient::FileRule;
using TamLogClient::ImageOf;
using TamLogClient::LogFileImage;
using TamLogClient::LogSnapshot;
using TamLogClient::RuleName;
using TamLogClient::VerifyLogFile;
using TamLogClient::VerifyOptions;
using TamLogClient::VerifyReport;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;

// Six messages in a ring of eight, a second apart.
class LogFileVerifyTest : public testing::Test {
 protected:
  LogFileVerifyTest() {
    for (int i = 0; i < 6; ++i) log.Submit(MakeBody(i * 1000, std::to_string(i)));
    log.Flush();
    snapshot = log.Snapshot();
    snapshot.header.serverRunning = 0;
  }

  VerifyReport Verify(const VerifyOptions& options = {}) {
    bytes = ImageOf(snapshot);
    return VerifyBytes(options);
  }

  VerifyReport VerifyBytes(const VerifyOptions& options = {}) const {
    auto report = VerifyLogFile(LogFileImage(bytes), options);
    EXPECT_EQ(report.Accepted(), TamLogTest::ServerKeeps(bytes) || bytes.empty());
    return report;
  }

  // The names of all findings, each followed by a space.
  static std::string Names(const VerifyReport& report) {
    std::string names;
    for (const FileFinding& finding : report.findings) names += std::string(RuleName(finding.rule)) + " ";
    return names;
  }

  RingModel log{8};
  LogSnapshot snapshot;
  std::string bytes;
};

TEST_F(LogFileVerifyTest, SoundFileHasNothingToSay) {
  const auto report = Verify();
  EXPECT_EQ(Names(report), "");
  EXPECT_TRUE(report.Accepted());
  EXPECT_EQ(report.slotsThere, 8U);
}

TEST_F(LogFileVerifyTest, EachNegativeNumberIsNamed) {
  snapshot.header.messageCount = -1;
  snapshot.header.nextSlot = -5;
  const auto report = Verify();
  ASSERT_EQ(Names(report), "not-negative not-negative ");
  EXPECT_EQ(report.findings[0].offset, 8U);
  EXPECT_EQ(report.findings[0].seen, "messageCount -1");
  EXPECT_EQ(report.findings[1].offset, 16U);
  EXPECT_EQ(report.findings[1].allowed, "0 or more");
}

TEST_F(LogFileVerifyTest, NumbersOutsideTheRingAreNamed) {
  snapshot.header.messageCount = 9;
  snapshot.header.nextSlot = 8;
  const auto report = Verify();
  ASSERT_EQ(Names(report), "inside-ring inside-ring ");
  EXPECT_EQ(report.findings[0].seen, "messageCount 9");
  EXPECT_EQ(report.findings[0].allowed, "at most maxMessages, 8");
  EXPECT_EQ(report.findings[1].allowed, "less than maxMessages, 8");
}

TEST_F(LogFileVerifyTest, GoesOnAfterTheFirstDamagedMessage) {
  std::memset(snapshot.slots[1].body.text, 'x', kTextSize);
  std::memset(snapshot.slots[2].body.source, 'x', kTextSize);
  snapshot.slots[4].body.type = 7;
  const auto report = Verify();
  ASSERT_EQ(Names(report), "text-ends source-ends known-type ");
  EXPECT_EQ(report.Damage(), 3U);
  EXPECT_EQ(report.findings[0].slot, 1U);
  EXPECT_EQ(report.findings[0].offset, 240U + 560 + 293);
  EXPECT_EQ(report.findings[1].offset, 240U + 2 * 560 + 36);
  EXPECT_EQ(report.findings[2].offset, 240U + 4 * 560 + 32);
  EXPECT_EQ(report.findings[2].seen, "type 7");
  EXPECT_EQ(report.findings[2].allowed, "0 to 3");
}

TEST_F(LogFileVerifyTest, DamageOutsideTheRingIsNone) {
  snapshot.slots[6].body.type = 7;
  std::memset(snapshot.slots[7].body.text, 'x', kTextSize);
  EXPECT_EQ(Names(Verify()), "");
}

TEST_F(LogFileVerifyTest, MessageOutOfOrderIsDamageWithBothTimes) {
  std::swap(snapshot.slots[3].body, snapshot.slots[4].body);
  const auto report = Verify();
  ASSERT_EQ(Names(report), "newest-first ");
  EXPECT_EQ(report.findings[0].slot, 4U);
  EXPECT_NE(report.findings[0].seen.find("00:00:03.000"), std::string::npos) << report.findings[0].seen;
  EXPECT_NE(report.findings[0].allowed.find("slot 3"), std::string::npos) << report.findings[0].allowed;
}

TEST_F(LogFileVerifyTest, RingReversedByABurstIsNoDamageAndYetNotAccepted) {
  for (int i = 10; i < 20; ++i) log.Submit(MakeBody(i * 1000, std::to_string(i)));
  log.Flush();
  snapshot = log.Snapshot();
  const auto report = Verify({.live = true});
  EXPECT_EQ(Names(report), "reversed-block ");
  EXPECT_EQ(report.Damage(), 0U);
  EXPECT_FALSE(report.Accepted());
}

TEST_F(LogFileVerifyTest, RestOfAReversedBlockIsFoundUntilItIsOverwritten) {
  for (int i = 10; i < 20; ++i) log.Submit(MakeBody(i * 1000, std::to_string(i)));
  log.Flush();
  for (int i = 20; i < 28; ++i) {
    snapshot = log.Snapshot();
    const auto report = Verify({.live = true});
    EXPECT_EQ(report.Damage(), 0U) << i;
    EXPECT_EQ(report.Accepted(), i == 27) << i;  // one message alone has no order
    log.Submit(MakeBody(i * 1000, std::to_string(i)));
    log.Flush();
  }
}

TEST_F(LogFileVerifyTest, LogThatAServerMadeIsNeverDamaged) {
  TamLogTest::Random random(7);
  for (int i = 0; i < 500; ++i) {
    bytes = TamLogTest::RandomLogFile(random, static_cast<std::int32_t>(1 + TamLogTest::Pick(random, 12)));
    const auto report = VerifyBytes({.live = true});
    EXPECT_EQ(report.Damage(), 0U) << i << ": " << Names(report);
  }
}

TEST_F(LogFileVerifyTest, FileCutInsideTheRingAndAfterIt) {
  Verify();
  bytes.resize(LogFileSize(7) + 1);
  EXPECT_EQ(Names(VerifyBytes()), "empty-slots-gone ");
  bytes.resize(LogFileSize(6));
  EXPECT_EQ(Names(VerifyBytes()), "empty-slots-gone ");
  bytes.resize(LogFileSize(6) - 1);
  const auto report = VerifyBytes();
  EXPECT_EQ(Names(report), "slots-in-file ");
  EXPECT_EQ(report.findings[0].slot, 5U);
  EXPECT_EQ(report.findings[0].seen, "1 message after the end of the file");
}

TEST_F(LogFileVerifyTest, FileOfAnotherSizeIsDamagedThoughAServerKeepsItsMessages) {
  Verify();
  const std::string whole = bytes;
  bytes = whole + "more";
  auto report = VerifyBytes();
  EXPECT_EQ(Names(report), "bytes-after-end ");
  EXPECT_EQ(report.Damage(), 1U);
  EXPECT_TRUE(report.Accepted());
  bytes = whole.substr(0, LogFileSize(7));
  report = VerifyBytes();
  EXPECT_EQ(Names(report), "empty-slots-gone ");
  EXPECT_EQ(report.Damage(), 1U);
  EXPECT_TRUE(report.Accepted());
}

TEST_F(LogFileVerifyTest, BytesLostInTheMiddleAreOneFindingAndNotOneForEachSlotAfterThem) {
  Verify();
  bytes.erase(LogFileSize(2) + 100, 33);
  const auto report = VerifyBytes();
  EXPECT_EQ(Names(report), "shifted-slots ");
  EXPECT_EQ(report.findings[0].offset, LogFileSize(2));
  EXPECT_EQ(report.findings[0].seen,
            "33 bytes missing, slots go on at byte " + std::to_string(LogFileSize(3) - 33));
}

TEST_F(LogFileVerifyTest, AnotherLogInTheFileIsNamed) {
  Verify();
  bytes += bytes;
  const auto report = VerifyBytes();
  EXPECT_EQ(Names(report), "another-log ");
  EXPECT_EQ(report.findings[0].offset, LogFileSize(8));
  EXPECT_EQ(report.findings[0].seen, "a log of 6 messages, capacity 8");
  EXPECT_TRUE(report.Accepted()) << "the server cuts it off";
}

// A sender chooses all bytes of its messages, those after the zero byte of a text included.
TEST_F(LogFileVerifyTest, MessageThatContainsAnotherOneDoesNotMoveTheSlots) {
  for (const std::size_t place : {40U, 100U, 300U}) {
    for (std::size_t i = 0; i < 6; ++i) {
      LogMessage& slot = snapshot.slots[i];
      auto* const bytesOfSlot = reinterpret_cast<char*>(&slot);
      slot.body.timestamp[0] = 0;
      LogMessage forged{};
      forged.body = MakeBody(5000, "forged");
      std::memcpy(bytesOfSlot + place, &forged, std::min(sizeof(forged), sizeof(slot) - place));
    }
    const auto report = Verify();
    EXPECT_EQ(report.Count(FileRule::ShiftedSlots), 0U) << place;
    snapshot = log.Snapshot();
    snapshot.header.serverRunning = 0;
  }
}

TEST_F(LogFileVerifyTest, FileWithoutWholeHeader) {
  Verify();
  bytes.resize(239);
  EXPECT_EQ(Names(VerifyBytes()), "header-complete ");
  bytes.clear();
  const auto report = VerifyBytes();
  EXPECT_EQ(Names(report), "empty-file ");
  EXPECT_TRUE(report.Accepted());
}

TEST_F(LogFileVerifyTest, OdditiesAreRemarksOnly) {
  snapshot.header.readCount = 2;
  snapshot.header.serverRunning = 1;
  snapshot.slots[0].body.timestamp[1] = 0;
  snapshot.slots[4] = snapshot.slots[3];
  snapshot.slots[5].sequence = 99;
  bytes = ImageOf(snapshot);
  std::memset(&bytes[112], 'n', 64);
  const auto report = VerifyBytes();
  EXPECT_EQ(report.Damage(), 0U);
  EXPECT_EQ(Names(report),
            "readers-inside not-closed lock-names impossible-date duplicate sequence sequence ");
}

TEST_F(LogFileVerifyTest, ListIsBoundedAndTheCountIsNot) {
  for (auto& slot : snapshot.slots) slot.body.type = 4;
  const auto report = Verify({.most = 2});
  EXPECT_EQ(report.findings.size(), 2U);
  EXPECT_EQ(report.Count(FileRule::KnownType), 6U);
}

TEST_F(LogFileVerifyTest, HugeClaimsCostNothing) {
  snapshot.header.maxMessages = 2147483647;
  snapshot.header.messageCount = 2147483647;
  EXPECT_EQ(Verify().Count(FileRule::SlotsInFile), 1U);
}

}  // namespace
