#include "client/file/log_file_repair.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <string>

#include "client/file/log_file_verify.h"
#include "client/file/log_file_writer.h"
#include "client/message/log_message_view.h"
#include "tests/client/file/damaged_files.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"

namespace {

using TamLogClient::ImageOf;
using TamLogClient::LogFileImage;
using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogClient::LossReason;
using TamLogClient::PlanRepair;
using TamLogClient::RepairOptions;
using TamLogClient::RepairPlan;
using TamLogClient::Status;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;

class LogFileRepairTest : public testing::Test {
 protected:
  LogFileRepairTest() {
    for (int i = 0; i < 6; ++i) log.Submit(MakeBody(i * 1000, std::to_string(i)));
    log.Flush();
    Take();
  }

  void Take() { bytes = ImageOf(log.Snapshot()); }

  LogMessage ReadSlot(std::uint64_t slot) const { return LogFileImage(bytes).Slot(slot); }
  void WriteSlot(std::uint64_t slot, const LogMessage& message) {
    std::memcpy(bytes.data() + LogFileImage::OffsetOf(slot), &message, sizeof(message));
  }

  RepairPlan Plan(const RepairOptions& options = {}) { return PlanRepair(LogFileImage(bytes), options); }

  // The texts of what can be saved, in its order.
  std::string Saved(const RepairOptions& options = {}) {
    const LogFileImage image(bytes);
    std::string texts;
    for (const auto& saved : PlanRepair(image, options).oldestFirst)
      texts += LogMessageView(SavedMessageOf(image, saved)).Text();
    return texts;
  }

  RingModel log{8};
  std::string bytes;
};

TEST_F(LogFileRepairTest, SoundFileKeepsEverythingInOrder) {
  EXPECT_EQ(Saved(), "012345");
  EXPECT_EQ(Saved({.carve = true}), "012345");
  EXPECT_EQ(Plan().capacity, 8U);
  EXPECT_EQ(Plan({.carve = true}).lost, 0U);
}

TEST_F(LogFileRepairTest, ReversedRingComesOutOldestFirstAndEqualTimesInOrderOfArrival) {
  for (int i = 0; i < 9; ++i) log.Submit(MakeBody(10000 + i / 2, std::to_string(i)));
  log.Flush();
  Take();
  EXPECT_EQ(Saved(), "12345678");
}

// Rings of many kinds: appended, after a burst, and with late messages inserted; most times are equal.
class OrderOfSavedMessages : public testing::TestWithParam<int> {
 protected:
  OrderOfSavedMessages() {
    std::mt19937 random(static_cast<std::uint32_t>(GetParam()));
    const auto draw = [&random](int most) { return std::uniform_int_distribution<int>(0, most)(random); };
    int number = 0;
    int time = 0;
    for (int flushes = 1 + draw(5); flushes > 0; --flushes) {
      for (int messages = draw(3) == 0 ? 9 + draw(3) : 1 + draw(3); messages > 0; --messages) {
        time += draw(3) == 0 ? 1 : 0;
        log.Submit(MakeBody(draw(5) == 0 ? std::max(0, time - 1) : time, std::string(1, Letter(number++))));
      }
      log.Flush();
    }
    snapshot = log.Snapshot();
    bytes = ImageOf(snapshot);
  }

  std::string ExpectedWithout(std::optional<std::uint32_t> lost) const {
    std::string texts;
    for (const std::uint32_t slot : OrderMessages(snapshot).oldestFirst) {
      if (slot != lost) texts += LogMessageView(snapshot.slots[slot]).Text();
    }
    return LastCopies(texts);
  }

  // A server may write a message a second time while the first copy stands. The last one counts.
  static std::string LastCopies(const std::string& texts) {
    std::string last;
    for (std::size_t i = 0; i < texts.size(); ++i) {
      if (texts.find(texts[i], i + 1) == std::string::npos) last += texts[i];
    }
    return last;
  }

  static char Letter(int number) { return static_cast<char>('0' + number); }

  std::string Saved() const {
    const LogFileImage image(bytes);
    std::string texts;
    for (const auto& saved : PlanRepair(image).oldestFirst)
      texts += LogMessageView(SavedMessageOf(image, saved)).Text();
    return LastCopies(texts);
  }

  RingModel log{8};
  LogSnapshot snapshot;
  std::string bytes;
};

TEST_P(OrderOfSavedMessages, IsThatInWhichTheyArrived) {
  EXPECT_EQ(Saved(), ExpectedWithout({}));
}

TEST_P(OrderOfSavedMessages, IsKeptWithoutTheHeader) {
  std::memset(bytes.data(), 0xFF, sizeof(LogFileHeader));
  EXPECT_EQ(Saved(), ExpectedWithout({}));
}

TEST_P(OrderOfSavedMessages, IsKeptAroundAMessageThatIsLost) {
  const std::string whole = bytes;
  for (const std::uint32_t slot : snapshot.RingOrder()) {
    bytes = whole;
    std::memset(bytes.data() + LogFileImage::OffsetOf(slot), 0, sizeof(LogMessage));
    EXPECT_EQ(Saved(), ExpectedWithout(slot)) << "without slot " << slot;
  }
}

INSTANTIATE_TEST_SUITE_P(Histories, OrderOfSavedMessages, testing::Range(0, 200));

TEST_F(LogFileRepairTest, CutFileGivesWhatIsThere) {
  bytes.resize(LogFileSize(4) + 100);
  EXPECT_EQ(Saved(), "0123");
  const auto plan = Plan();
  EXPECT_EQ(plan.lost, 2U);
  ASSERT_EQ(plan.losses.size(), 1U);
  EXPECT_EQ(plan.losses[0].reason, LossReason::Missing);
  EXPECT_EQ(plan.capacity, 8U);
}

TEST_F(LogFileRepairTest, HeaderWithoutSenseLeavesTheSlots) {
  bytes[11] = '\x80';  // messageCount is negative
  const auto plan = Plan();
  EXPECT_EQ(Saved(), "012345");
  EXPECT_FALSE(plan.headerTrusted);
  EXPECT_EQ(plan.capacity, 8U);
}

TEST_F(LogFileRepairTest, BadMessagesAreLeftOutWithSlotAndReason) {
  LogMessage message = ReadSlot(2);
  message.body.type = 9;
  message.body.timestamp[1] = 13;
  WriteSlot(2, message);
  WriteSlot(4, {});
  EXPECT_EQ(Saved(), "0135");
  const auto plan = Plan();
  ASSERT_EQ(plan.losses.size(), 2U);
  EXPECT_EQ(plan.losses[0].offset, LogFileImage::OffsetOf(2));
  EXPECT_EQ(plan.losses[0].reason, LossReason::KnownType);
  EXPECT_EQ(plan.losses[1].reason, LossReason::Blank);
}

TEST_F(LogFileRepairTest, TextWithoutEndIsGivenOne) {
  LogMessage message = ReadSlot(5);
  std::memset(message.body.text, 'x', kTextSize);
  message.body.source[kTextSize - 1] = 'y';  // after the end of the source
  WriteSlot(5, message);
  EXPECT_EQ(Saved(), "01234" + std::string(256, 'x'));
  EXPECT_EQ(Plan().textsCut, 1U);
  message.body.text[kTextSize - 1] = '\0';
  EXPECT_EQ(TamLogTest::BodyBytes(SavedMessageOf(LogFileImage(bytes), Plan().oldestFirst[5])),
            TamLogTest::BodyBytes(message))
      << "nothing else is changed";
}

TEST_F(LogFileRepairTest, TypeThatDoesNotExistCostsNoMessageAndIsReported) {
  constexpr std::uint32_t kFlipped = 0x00400000;
  LogMessage message = ReadSlot(2);
  const std::uint32_t before = message.body.type;
  message.body.type ^= kFlipped;
  WriteSlot(2, message);
  for (const bool carve : {false, true}) {
    EXPECT_EQ(Saved({.carve = carve}), "012345");
    const auto plan = Plan({.carve = carve});
    EXPECT_EQ(plan.lost, 0U);
    EXPECT_EQ(plan.textsCut, 0U);
    EXPECT_EQ(plan.typesChanged, 1U);
    ASSERT_EQ(plan.changes.size(), 1U);
    EXPECT_EQ(plan.changes[0].offset, LogFileImage::OffsetOf(2));
    EXPECT_EQ(plan.changes[0].oldType, before ^ kFlipped);
    EXPECT_EQ(plan.changes[0].newType, before);
    const LogMessage saved = SavedMessageOf(LogFileImage(bytes), plan.oldestFirst[2]);
    EXPECT_EQ(saved.body.type, before) << "one bit above the two lowest does not hide which type it was";
  }
}

TEST_F(LogFileRepairTest, RandomBytesWithATypeThatDoesNotExistAreNoMessage) {
  LogMessage message = ReadSlot(2);
  std::memset(&message.body, 0x5A, sizeof(message.body));
  WriteSlot(2, message);
  EXPECT_EQ(Saved(), "01345");
  ASSERT_EQ(Plan().losses.size(), 1U);
  EXPECT_EQ(Plan().losses[0].reason, LossReason::KnownType);
  message = ReadSlot(3);
  message.body.type = 4;
  std::memset(message.body.text, 'x', kTextSize);
  WriteSlot(3, message);
  EXPECT_EQ(Saved(), "0145") << "two flaws at once are not forgiven";
  EXPECT_EQ(Plan().lost, 2U);
}

TEST_F(LogFileRepairTest, MessagesAfterAClearAreCarved) {
  log.Clear();
  Take();
  EXPECT_EQ(Saved(), "");
  EXPECT_EQ(Plan().outside, 6U);
  EXPECT_EQ(Saved({.carve = true}), "012345");
  EXPECT_EQ(Plan({.carve = true}).outside, 0U);
}

// What a clear left in the slots belongs to no message, so that its damage is no loss. The checker and the
// repair agree on that.
TEST_F(LogFileRepairTest, DamageAfterTheEndOfTheRingIsNoLoss) {
  for (const std::uint64_t messages : {0U, 1U}) {
    log.Clear();
    if (messages > 0) log.Submit(MakeBody(9000, "new"));
    log.Flush();
    Take();
    const std::uint64_t damaged = LogFileImage::OffsetOf(messages);
    bytes[damaged + TamLogClient::kTypeOffset] = 93;
    bytes.insert(damaged + 300, 1, '?');
    bytes.pop_back();
    EXPECT_EQ(TamLogClient::VerifyLogFile(LogFileImage(bytes)).Damage(), 0U) << messages;
    EXPECT_EQ(Saved(), messages > 0 ? "new" : "");
    EXPECT_EQ(Plan().lost, 0U) << messages;
    EXPECT_TRUE(Plan().breaks.empty()) << messages;
    EXPECT_GT(Plan().outside, 0U) << messages;
  }
}

// A full rewrite numbers every message 0, so that the numbers do not show which of the two is the slot.
TEST_F(LogFileRepairTest, MessageWithinTheTextOfTheLastOneDoesNotReplaceIt) {
  LogMessage planted{};
  planted.body = MakeBody(0, "", "planted");
  constexpr std::size_t kPlanted = 80;
  for (std::uint64_t slot = 0; slot < 6; ++slot) std::memset(&bytes[LogFileImage::OffsetOf(slot)], 0, 8);
  std::memcpy(&bytes[LogFileImage::OffsetOf(5) + 300], &planted, kPlanted);
  EXPECT_EQ(TamLogClient::VerifyLogFile(LogFileImage(bytes)).Damage(), 0U);
  EXPECT_EQ(Saved(), "012345");
  EXPECT_EQ(Plan().lost, 0U);
}

// An empty ring is in place wherever its header says that the next message goes.
TEST_F(LogFileRepairTest, DamageBeforeTheNextSlotOfAnEmptyRingIsNoLoss) {
  bytes[offsetof(LogFileHeader, messageCount)] = 0;
  bytes[LogFileImage::OffsetOf(0) + TamLogClient::kTypeOffset] = 93;
  bytes.insert(LogFileImage::OffsetOf(0) + 300, 1, '?');
  bytes.pop_back();
  EXPECT_EQ(TamLogClient::VerifyLogFile(LogFileImage(bytes)).Damage(), 0U);
  EXPECT_EQ(Plan().lost, 0U);
  EXPECT_EQ(Saved(), "");
}

// The header fits the file, so that what looks like a message among the lock names moves no slot.
TEST_F(LogFileRepairTest, BytesLikeMessagesBeforeTheSlotsOfAnEmptyRingAreNoLoss) {
  bytes.replace(0, bytes.size(), bytes.size(), '\0');
  bytes[offsetof(LogFileHeader, maxMessages)] = 8;
  LogMessage message{};
  message.body = MakeBody(0, "", "");
  for (const std::size_t at : {142U, 702U, 968U}) std::memcpy(&bytes[at + 16], &message.body.timestamp, 16);
  EXPECT_EQ(TamLogClient::VerifyLogFile(LogFileImage(bytes)).Damage(), 0U);
  EXPECT_EQ(Plan().lost, 0U);
  EXPECT_TRUE(Plan().breaks.empty());
}

TEST_F(LogFileRepairTest, MessagesThatAWrongHeaderHidesAreReported) {
  bytes[offsetof(LogFileHeader, messageCount)] = 2;
  EXPECT_EQ(Saved(), "45");
  EXPECT_EQ(Plan().outside, 4U);
}

TEST_F(LogFileRepairTest, MessagesAfterAReformatAreCarvedInAdditionToNewOnes) {
  log.Clear();
  log.Submit(MakeBody(9000, "new"));
  log.Flush();
  Take();
  EXPECT_EQ(Saved(), "new");
  EXPECT_EQ(Saved({.carve = true}), "12345new");
  EXPECT_EQ(Plan({.carve = true}).fromRing, 1U);
}

TEST_F(LogFileRepairTest, MovedMessagesAreCarved) {
  const std::string whole = bytes;
  for (const std::size_t gone : {1U, 7U, 100U, 239U}) {
    bytes = whole;
    bytes.erase(0, gone);
    EXPECT_EQ(Saved({.carve = true}), "012345") << gone;
    bytes = whole;
    bytes.erase(LogFileSize(2) + 30, gone);
    EXPECT_EQ(Saved({.carve = true}), "01345") << gone;
    bytes = whole;
    bytes.insert(LogFileSize(2) + 30, gone, '?');
    EXPECT_EQ(Saved({.carve = true}), "01345") << gone;
  }
}

TEST_F(LogFileRepairTest, ImpossibleDatesAreKept) {
  LogMessage message = ReadSlot(3);
  message.body.timestamp[2] = 40;
  WriteSlot(3, message);
  EXPECT_EQ(Saved(), "012453");
  EXPECT_EQ(Saved({.carve = true}), "012453");
}

TEST_F(LogFileRepairTest, RepeatedMessagesAreLeftOutOnlyWhenAsked) {
  WriteSlot(4, ReadSlot(3));
  EXPECT_EQ(Saved(), "012335");
  EXPECT_EQ(Saved({.unique = true}), "01235");
  EXPECT_EQ(Plan({.unique = true}).repeated, 1U);
}

TEST_F(LogFileRepairTest, NothingToSaveIsNoTrouble) {
  bytes.clear();
  EXPECT_EQ(Saved({.carve = true}), "");
  EXPECT_EQ(Plan().capacity, 1U);
  bytes.assign(5000, '\0');
  EXPECT_EQ(Saved({.carve = true}), "");
}

class LogFileWriterTest : public LogFileRepairTest {
 protected:
  Status Write(const std::string& file, std::uint32_t capacity, bool overwrite = false) {
    const LogFileImage image(bytes);
    const auto plan = PlanRepair(image, {.carve = true});
    return TamLogClient::WriteLogFile(
        file, plan.oldestFirst.size(),
        [&](std::uint64_t i) { return SavedMessageOf(image, plan.oldestFirst[i]); }, capacity, overwrite);
  }

  static std::string Contents(const std::string& file) {
    std::string contents;
    EXPECT_EQ(TamLogClient::ReadFileBytes(file, contents), Status::Ok);
    return contents;
  }

  std::size_t FilesThere() const {
    const std::filesystem::directory_iterator files(std::filesystem::path(directory.Path()));
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
  }

  TestSupport::TempDir directory;
  std::string path = directory.File("new.dat");
};

TEST_F(LogFileWriterTest, WhatItWritesIsAcceptedAndWhole) {
  for (const std::uint32_t capacity : {6U, 7U, 8U, 100U}) {
    ASSERT_EQ(Write(path, capacity, true), Status::Ok);
    const std::string written = Contents(path);
    EXPECT_EQ(written.size(), LogFileSize(capacity));
    EXPECT_TRUE(TamLogTest::ServerKeeps(written)) << capacity;
    EXPECT_EQ(TamLogTest::BodiesInRing(written), TamLogTest::BodiesInRing(bytes)) << capacity;
    EXPECT_EQ(VerifyLogFile(LogFileImage(written)).findings.size(), 0U) << capacity;
  }
  EXPECT_EQ(FilesThere(), 1U);
}

TEST_F(LogFileWriterTest, NothingIsOverwrittenUnlessAsked) {
  ASSERT_EQ(Write(path, 8), Status::Ok);
  EXPECT_EQ(Write(path, 9), Status::Exists);
  EXPECT_EQ(Contents(path).size(), LogFileSize(8));
  EXPECT_EQ(Write(path, 9, true), Status::Ok);
  EXPECT_EQ(Contents(path).size(), LogFileSize(9));
}

TEST_F(LogFileWriterTest, NothingIsLeftOfWhatFails) {
  EXPECT_EQ(Write(path, 5), Status::BadValue) << "six messages do not fit into five slots";
  LogMessage bad = ReadSlot(0);
  bad.body.type = 4;
  const auto give = [&bad](std::uint64_t) { return bad; };
  EXPECT_EQ(TamLogClient::WriteLogFile(path, 1, give, 8, false), Status::BadValue);
  EXPECT_EQ(Write(path + "/deeper/new.dat", 8), Status::NotFound);
  EXPECT_EQ(FilesThere(), 0U);
}

TEST_F(LogFileWriterTest, DirectoriesAreNotReplaced) {
  std::filesystem::create_directory(path);
  EXPECT_EQ(Write(path, 8), Status::NotAFile);
  EXPECT_EQ(Write(path, 8, true), Status::NotAFile);
  EXPECT_TRUE(std::filesystem::is_directory(path));
  EXPECT_EQ(FilesThere(), 1U);
}

TEST_F(LogFileWriterTest, CallerThatEndsTheWritingIsInterrupted) {
  const LogMessage message = ReadSlot(0);
  const auto give = [&message](std::uint64_t) { return message; };
  for (const std::uint64_t last : {0U, 3U, 7U}) {  // the first slot, and slots after the only message
    const auto goOn = [last](std::uint64_t slot) { return slot < last; };
    EXPECT_EQ(TamLogClient::WriteLogFile(path, 1, give, 8, false, goOn), Status::Interrupted) << last;
    EXPECT_EQ(FilesThere(), 0U);
  }
}

}  // namespace
