#include "client/format/tsv_text.h"
#include "client/message/message_body.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "client/format/message_formatter.h"
#include "client/message/log_message_view.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::FillTexts;
using TamLogClient::LogMessageView;
using TamLogClient::ParseTsvLine;

std::string LineOf(const LogMessageBody& body) {
  LogMessage message{};
  message.body = body;
  std::string line;
  TamLogClient::MessageFormatter({TamLogClient::Format::Tsv}).Append(message, false, line);
  line.pop_back();
  return line;
}

TEST(Tsv, EscapesAreWrittenAndRead) {
  const auto body = TamLogTest::MakeBody(1, "a\tb\nc\rd\\e\x01\xFF", "S\\t");
  const std::string line = LineOf(body);
  EXPECT_EQ(line, "2026-01-01 00:00:00.001\t0\tS\\\\t\ta\\tb\\nc\\rd\\\\e\\x01\\xff");
  std::string problem;
  const auto draft = ParseTsvLine(line, problem);
  ASSERT_TRUE(draft) << problem;
  EXPECT_EQ(draft->text, "a\tb\nc\rd\\e\x01\xFF");
  EXPECT_EQ(draft->source, "S\\t");
}

TEST(Tsv, AnyBytesComeBackAsTheyWere) {
  std::mt19937 random(7);
  for (int i = 0; i < 2000; ++i) {
    LogMessageBody body{};
    for (auto& word : body.timestamp) word = static_cast<std::int16_t>(random());
    body.timestamp[7] = 0;
    body.type = random() & 3U;
    std::string source(random() % 257, '\0');
    std::string text(random() % 257, '\0');
    for (char& byte : source) byte = static_cast<char>(1 + random() % 255);
    for (char& byte : text) byte = static_cast<char>(1 + random() % 255);
    ASSERT_TRUE(FillTexts(source, text, body));
    std::string problem;
    const auto draft = ParseTsvLine(LineOf(body), problem);
    ASSERT_TRUE(draft) << problem;
    LogMessageBody back = draft->body;
    ASSERT_TRUE(FillTexts(draft->source, draft->text, back));
    EXPECT_TRUE(TamLogClient::IdentityOf(back) == TamLogClient::IdentityOf(body));
  }
}

TEST(Tsv, EmptyTextsAreAllowed) {
  std::string problem;
  EXPECT_TRUE(ParseTsvLine("2026-01-01 00:00\t0\t\t", problem)) << problem;
}

TEST(Tsv, EachMistakeIsNamedWithItsFix) {
  const auto problemOf = [](std::string_view line) {
    std::string problem;
    EXPECT_FALSE(ParseTsvLine(line, problem));
    return problem;
  };
  const char* const columns = "expected four columns with tabs between them: time, type, source, text";
  EXPECT_EQ(problemOf(""), columns);
  EXPECT_EQ(problemOf("2026-01-01\t0\tS"), columns);
  EXPECT_EQ(problemOf("2026-01-01\t0\tS\tx\ty"), columns);
  EXPECT_EQ(problemOf("noon\t0\tS\tx"), "the time is not of the form YYYY-MM-DD HH:MM:SS.mmm");
  EXPECT_EQ(problemOf("2026-01-01\t4\tS\tx"), "the type is not a number from 0 to 3");
  EXPECT_EQ(problemOf("2026-01-01\t\tS\tx"), "the type is not a number from 0 to 3");
  const char* const escape =
      "unknown escape; write \\t \\n \\r \\\\ or \\xNN, and a backslash itself as \\\\";
  EXPECT_EQ(problemOf("2026-01-01\t0\tS\tC:\\dir"), escape);
  EXPECT_EQ(problemOf("2026-01-01\t0\tS\tx\\"), escape);
  EXPECT_EQ(problemOf("2026-01-01\t0\tS\t\\x1"), escape);
}

TEST(FillTexts, TakesWhatFitsAndRefusesTheRest) {
  LogMessageBody body{};
  EXPECT_TRUE(FillTexts(std::string(256, 's'), std::string(256, 't'), body));
  EXPECT_EQ(body.source[256], '\0');
  const LogMessageBody before = body;
  EXPECT_FALSE(FillTexts(std::string(257, 's'), "", body));
  EXPECT_FALSE(FillTexts("", std::string(257, 't'), body));
  EXPECT_FALSE(FillTexts("", std::string("a\0b", 3), body));
  EXPECT_TRUE(TamLogClient::IdentityOf(before) == TamLogClient::IdentityOf(body));
}

}  // namespace
