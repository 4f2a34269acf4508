#include "tamlogctl/server/send_lines.h"

#include <gtest/gtest.h>

namespace {

using TamLogCtl::AppendMessagesOf;
using TamLogCtl::LineNumbers;
using TamLogCtl::LongText;
using TamLogCtl::SendOptions;

std::string TextOf(const std::vector<std::size_t>& numbers) {
  LineNumbers lines;
  for (const std::size_t number : numbers) lines.Add(number);
  return lines.Text();
}

TEST(LineNumbers, NeighboursBecomeARange) {
  EXPECT_EQ(TextOf({12}), "12");
  EXPECT_EQ(TextOf({12, 13}), "12 to 13");
  EXPECT_EQ(TextOf({12, 57, 58, 59, 60, 90}), "12, 57 to 60 and 90");
}

TEST(LineNumbers, ManyRangesAreCounted) {
  std::vector<std::size_t> numbers;
  for (std::size_t i = 1; i <= 30; ++i) numbers.push_back(2 * i);
  const std::string text = TextOf(numbers);
  EXPECT_NE(text.find(", 40 and 10 more"), std::string::npos) << text;
}

TEST(SendLines, LongTextIsSplitOrRefusedWithItsLength) {
  SendOptions options;
  options.source = "Demo";
  std::vector<LogMessageBody> messages;
  std::string problem;
  const std::string line(300, 'x');
  EXPECT_FALSE(AppendMessagesOf(line, options, {}, messages, problem));
  EXPECT_EQ(problem, "the text has 300 bytes, 256 are allowed; add --truncate or --split");
  EXPECT_TRUE(messages.empty());
  options.longText = LongText::Split;
  EXPECT_TRUE(AppendMessagesOf(line, options, {}, messages, problem));
  EXPECT_EQ(messages.size(), 2U);
}

TEST(SendLines, LineOfTsvBringsItsOwnTimeTypeAndSource) {
  SendOptions options;
  options.input = "tsv";
  std::vector<LogMessageBody> messages;
  std::string problem;
  EXPECT_FALSE(AppendMessagesOf("text alone", options, {}, messages, problem));
  EXPECT_NE(problem.find("expected four columns"), std::string::npos) << problem;
  EXPECT_TRUE(AppendMessagesOf("2026-01-02 03:04:05.678\t2\tStage\thomed", options, {}, messages, problem));
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(messages[0].type, 2U);
  EXPECT_EQ(messages[0].timestamp[6], 678);
  EXPECT_STREQ(messages[0].source, "Stage");
  EXPECT_STREQ(messages[0].text, "homed");
}

}  // namespace
