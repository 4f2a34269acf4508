#include "tamlogctl/server/message_spool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tests/support/ring_model.h"

namespace {

using TamLogCtl::MessageSpool;
using TamLogTest::MakeBody;

bool AreEqual(const LogMessageBody& left, const LogMessageBody& right) {
  return std::memcmp(&left, &right, sizeof(left)) == 0;
}

// Messages of random bytes, with zeros within and after the texts.
std::vector<LogMessageBody> RandomMessages(std::size_t count) {
  std::mt19937 random(7);
  std::vector<LogMessageBody> messages(count);
  for (LogMessageBody& message : messages) {
    const auto fill = [&random](char* field, std::size_t size) {
      for (std::size_t i = 0; i < size; ++i) field[i] = static_cast<char>(random() % 3);
    };
    fill(reinterpret_cast<char*>(&message), sizeof(message));
    const std::size_t end = random() % (kTextSize + 1);
    std::memset(message.text + end, 0, kTextSize - end);
    if (random() % 4 == 0) std::memset(message.source, 0, kTextSize);
  }
  return messages;
}

// A few are held in memory; 20,000 need the temporary file.
class MessageSpoolTest : public testing::TestWithParam<std::size_t> {};

TEST_P(MessageSpoolTest, EveryByteComesBackInOrderOfTimeAndEqualTimesInTheirOrder) {
  std::vector<LogMessageBody> messages = RandomMessages(GetParam());
  MessageSpool spool;
  spool.BeginFile();
  for (const LogMessageBody& message : messages) spool.Add(message);
  ASSERT_TRUE(spool.Sort()) << spool.Problem();
  std::stable_sort(messages.begin(), messages.end(),
                   [](const auto& left, const auto& right) { return TimeKey(left) < TimeKey(right); });
  ASSERT_EQ(spool.Size(), messages.size());
  for (std::size_t i = 0; i < messages.size(); ++i) ASSERT_TRUE(AreEqual(spool.At(i), messages[i])) << i;
  EXPECT_EQ(spool.Problem(), "");
}

INSTANTIATE_TEST_SUITE_P(Counts, MessageSpoolTest, testing::Values(0, 1, 100, 20000));

TEST(MessageSpoolFiles, MessagesOfSeveralFilesCountAsOftenAsInTheFileWithMostOfThem) {
  MessageSpool spool;
  for (const char* const texts : {"aab", "abbbc", "", "aaac"}) {
    spool.BeginFile();
    for (const char* text = texts; *text != '\0'; ++text) spool.Add(MakeBody(5, std::string(1, *text)));
  }
  spool.BeginFile();
  spool.Add(MakeBody(4, "a"));
  ASSERT_TRUE(spool.Sort());
  EXPECT_EQ(spool.LeaveOutRepeated(), (std::vector<std::size_t>{0, 2, 0, 3, 0}));
  std::string all;
  for (std::size_t i = 0; i < spool.Size(); ++i) all += spool.At(i).text;
  EXPECT_EQ(all, "aaabbbca") << "the oldest first, then the files in their order";
}

}  // namespace
