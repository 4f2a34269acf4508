// The bytes of a message and of the header, and the time key.

#include "records/log_file_format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/messages.h"

namespace {

using TestSupport::At;
using TestSupport::From;
using TestSupport::Message;
using TestSupport::OfType;

template <class Record>
std::vector<unsigned char> BytesOf(const Record& record) {
  std::vector<unsigned char> bytes(sizeof record);
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

template <class Number>
Number NumberAt(const std::vector<unsigned char>& bytes, std::size_t offset) {
  Number number = 0;
  for (std::size_t i = 0; i < sizeof number; ++i) {
    number =
        static_cast<Number>(number | static_cast<Number>(static_cast<Number>(bytes[offset + i]) << (8 * i)));
  }
  return number;
}

std::string TextAt(const std::vector<unsigned char>& bytes, std::size_t offset) {
  std::string text;
  for (std::size_t i = offset; bytes.at(i) != 0; ++i) text += static_cast<char>(bytes[i]);
  return text;
}

TEST(LogFileFormat, AMessageHasItsFieldsAtTheirOffsetsInLittleEndian) {
  LogMessage message = {};
  message.sequence = 0x1122334455667788U;
  message.body = From("Camera", OfType(3, Message("hello", At(12, 34, 56, 789))));
  message.body.origin[0] = 0xA1;
  message.body.origin[7] = 0xA8;
  message.body.timestamp[7] = -2;
  message.body.tail[0] = 0xB1;
  message.body.tail[3] = 0xB4;
  const std::vector<unsigned char> bytes = BytesOf(message);

  ASSERT_EQ(bytes.size(), 560U);
  EXPECT_EQ(NumberAt<std::uint64_t>(bytes, 0), 0x1122334455667788U);
  EXPECT_EQ(bytes[8], 0xA1);
  EXPECT_EQ(bytes[15], 0xA8);
  EXPECT_EQ(NumberAt<std::uint16_t>(bytes, 16), 2026);
  EXPECT_EQ(NumberAt<std::uint16_t>(bytes, 22), 12);
  EXPECT_EQ(NumberAt<std::uint16_t>(bytes, 28), 789);
  EXPECT_EQ(NumberAt<std::uint16_t>(bytes, 30), 0xFFFE);
  EXPECT_EQ(NumberAt<std::uint32_t>(bytes, 32), 3U);
  EXPECT_EQ(TextAt(bytes, 36), "Camera");
  EXPECT_EQ(TextAt(bytes, 293), "hello");
  EXPECT_EQ(bytes[550], 0xB1);
  EXPECT_EQ(bytes[553], 0xB4);
}

TEST(LogFileFormat, TheSendersFormIsTheSlotWithoutSequenceAndPadding) {
  const LogMessage message = {.sequence = 5, .body = Message("hello", At(1, 2)), .padding = {}};
  const std::vector<unsigned char> slot = BytesOf(message);
  const std::vector<unsigned char> sent = BytesOf(message.body);

  ASSERT_EQ(sent.size(), 546U);
  EXPECT_EQ(std::vector<unsigned char>(slot.begin() + 8, slot.begin() + 8 + 546), sent);
}

TEST(LogFileFormat, TheHeaderHasItsFieldsAtTheirOffsets) {
  const LogFileHeader header = {.readCount = 0x01020304,
                                .serverRunning = 1,
                                .padding1 = {},
                                .messageCount = 11,
                                .maxMessages = 22,
                                .nextSlot = 33,
                                .padding2 = {},
                                .changeCount = 44,
                                .rewriteCount = 55,
                                .nextSequence = 66};
  const std::vector<unsigned char> bytes = BytesOf(header);

  ASSERT_EQ(bytes.size(), 48U);
  EXPECT_EQ(NumberAt<std::uint32_t>(bytes, 0), 0x01020304U);
  EXPECT_EQ(bytes[4], 1);
  EXPECT_EQ(NumberAt<std::uint32_t>(bytes, 8), 11U);
  EXPECT_EQ(NumberAt<std::uint32_t>(bytes, 12), 22U);
  EXPECT_EQ(NumberAt<std::uint32_t>(bytes, 16), 33U);
  EXPECT_EQ(NumberAt<std::uint64_t>(bytes, 24), 44U);
  EXPECT_EQ(NumberAt<std::uint64_t>(bytes, 32), 55U);
  EXPECT_EQ(NumberAt<std::uint64_t>(bytes, 40), 66U);
}

TEST(LogFileFormat, TheFileIsTheHeaderTheNamesAndTheSlots) {
  EXPECT_EQ(LogFileSize(0), 240U);
  EXPECT_EQ(LogFileSize(1), 800U);
  EXPECT_EQ(LogFileSize(50000), 28000240U);
}

TEST(LogFileFormat, TheSizeOfALargeFilePasses32Bits) {
  EXPECT_LT(LogFileSize(7669584), std::uint64_t{1} << 32U);
  EXPECT_GT(LogFileSize(7669585), std::uint64_t{1} << 32U);
  EXPECT_EQ(LogFileSize(0xFFFFFFFFU), 240U + 560U * std::uint64_t{0xFFFFFFFFU});
}

TEST(LogFileFormat, TheNamesOfTheSharedObjectsAreFixed) {
  EXPECT_STREQ(kFileMapName, "Global\\TamLogServiceFileMap");
  EXPECT_STREQ(kHeaderLockName, "Global\\TamLogServiceFileHeaderMutex");
  EXPECT_STREQ(kReadWaitEventName, "Global\\TamLogServiceReadWaitEvent");
  EXPECT_STREQ(kWriteWaitEventName, "Global\\TamLogServiceWriteWaitEvent");
}

TEST(TimeKey, CountsTheSevenWordsInTheirUnits) {
  constexpr std::uint64_t kDay = 86400000;
  constexpr std::uint64_t kUnits[] = {12 * 31 * kDay, 31 * kDay, kDay, 3600000, 60000, 1000, 1};
  for (std::size_t word = 0; word < std::size(kUnits); ++word) {
    LogMessageBody body = {};
    body.timestamp[word] = 1;
    EXPECT_EQ(TimeKey(body), kUnits[word]) << word;
  }
}

TEST(TimeKey, OfAWholeDate) {
  const LogMessageBody body = Message("x", At(12, 34, 56, 789));
  EXPECT_EQ(TimeKey(body), (((((2026ULL * 12 + 3) * 31 + 14) * 24 + 12) * 60 + 34) * 60 + 56) * 1000 + 789);
}

TEST(TimeKey, LeavesTheEighthWordOut) {
  LogMessageBody body = Message("x", At(1, 2));
  const std::uint64_t key = TimeKey(body);
  body.timestamp[7] = 1234;
  EXPECT_EQ(TimeKey(body), key);
}

TEST(TimeKey, TakesTheWordsWithTheirSign) {
  LogMessageBody body = {};
  body.timestamp[5] = 1;
  body.timestamp[6] = -1;
  EXPECT_EQ(TimeKey(body), 999U);
}

TEST(TimeKey, OfATimeBeforeZeroIsVeryLarge) {
  LogMessageBody body = {};
  body.timestamp[0] = -1;
  EXPECT_EQ(TimeKey(body), 0U - 12ULL * 31 * 86400000);
}

}  // namespace
