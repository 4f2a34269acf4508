#include "driver/message_lines.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>

namespace {

LogMessageBody Parse(const std::string& line) {
  return ParseMessageLine(line, LongText::kRefuse);
}

std::string FaultOf(const std::string& line) {
  try {
    Parse(line);
  } catch (const MessageLineError& error) {
    return error.what();
  }
  return "no fault";
}

std::string TimeFault(const std::string& time) {
  return FaultOf(time + "\t0\ts\tt");
}

TEST(MessageLine, FillsEveryFieldOfTheSendersForm) {
  const LogMessageBody body = Parse("2026-01-02 03:04:05.678\t2\tCamera\tshutter open");
  const std::int16_t expected[8] = {2026, 1, 2, 3, 4, 5, 678, 0};
  EXPECT_EQ(0, std::memcmp(expected, body.timestamp, sizeof(expected)));
  EXPECT_EQ(2U, body.type);
  EXPECT_STREQ("Camera", body.source);
  EXPECT_STREQ("shutter open", body.text);
  const std::uint8_t zeros[8] = {};
  EXPECT_EQ(0, std::memcmp(zeros, body.origin, sizeof(body.origin)));
  EXPECT_EQ(0, std::memcmp(zeros, body.tail, sizeof(body.tail)));
}

TEST(MessageLine, TimeWithoutMillisecondsHasZeroOfThem) {
  EXPECT_EQ(0, Parse("2026-12-31 23:59:59\t0\ts\tt").timestamp[6]);
  EXPECT_EQ(59, Parse("2026-12-31 23:59:59\t0\ts\tt").timestamp[5]);
}

TEST(MessageLine, LaterTabsBelongToTheText) {
  EXPECT_STREQ("a\tb\t", Parse("2026-01-02 03:04:05\t0\ts\ta\tb\t").text);
}

TEST(MessageLine, SourceAndTextMayBeEmpty) {
  const LogMessageBody body = Parse("2026-01-02 03:04:05\t0\t\t");
  EXPECT_STREQ("", body.source);
  EXPECT_STREQ("", body.text);
}

TEST(MessageLine, Utf8PassesAsItsBytes) {
  EXPECT_STREQ("\xC3\xA4\xE2\x82\xAC", Parse("2026-01-02 03:04:05\t0\ts\t\xC3\xA4\xE2\x82\xAC").text);
}

TEST(MessageLine, TypesThatTheServerDropsAreSentNevertheless) {
  EXPECT_EQ(4294967295U, Parse("2026-01-02 03:04:05\t4294967295\ts\tt").type);
}

TEST(MessageLine, MissingFieldsAreAFault) {
  const std::string fault = "expected four fields (time, type, source, text) with a tab between two of them";
  EXPECT_EQ(fault, FaultOf(""));
  EXPECT_EQ(fault, FaultOf("2026-01-02 03:04:05\t0\tsource"));
}

TEST(MessageLine, TimesOfAnotherFormAreAFault) {
  for (const char* time :
       {"", "2026-01-02", "2026-1-2 03:04:05", "2026-01-02T03:04:05", "2026-01-02 03:04:05.6",
        "2026-01-02 03:04:05.6789", "-026-01-02 03:04:05", "2026-01-02 03:04:05,678"}) {
    EXPECT_EQ("the time \"" + std::string(time) + "\" is not of the form YYYY-MM-DD HH:MM:SS[.mmm]",
              TimeFault(time));
  }
}

TEST(MessageLine, TimesThatDoNotExistAreAFault) {
  for (const char* time :
       {"2026-00-02 03:04:05", "2026-13-02 03:04:05", "2026-01-00 03:04:05", "2026-01-32 03:04:05",
        "2026-01-02 24:04:05", "2026-01-02 03:60:05", "2026-01-02 03:04:60"}) {
    EXPECT_EQ("the time \"" + std::string(time) + "\" does not exist", TimeFault(time));
  }
}

TEST(MessageLine, TypesThatAreNoNumberAreAFault) {
  for (const char* type : {"", "x", "-1", "1x", " 1", "4294967296"}) {
    EXPECT_EQ("the type \"" + std::string(type) + "\" is not a number from 0 to 4294967295",
              FaultOf("2026-01-02 03:04:05\t" + std::string(type) + "\ts\tt"));
  }
}

TEST(MessageLine, ZeroBytesAreAFault) {
  EXPECT_EQ("the text holds a zero byte", FaultOf(std::string("2026-01-02 03:04:05\t0\ts\ta\0b", 27)));
}

TEST(MessageLine, TextOf256BytesFitsAndOneMoreIsRefused) {
  const std::string front = "2026-01-02 03:04:05\t0\ts\t";
  EXPECT_EQ(std::string(256, 'x'), Parse(front + std::string(256, 'x')).text);
  EXPECT_EQ("the text has 257 bytes; at most 256 fit (--truncate cuts it)",
            FaultOf(front + std::string(257, 'x')));
}

TEST(MessageLine, SourceOf256BytesFitsAndOneMoreIsRefused) {
  const std::string front = "2026-01-02 03:04:05\t0\t";
  EXPECT_EQ(std::string(256, 'x'), Parse(front + std::string(256, 'x') + "\tt").source);
  EXPECT_EQ("the source has 257 bytes; at most 256 fit (--truncate cuts it)",
            FaultOf(front + std::string(257, 'x') + "\tt"));
}

TEST(MessageLine, TruncateCutsAt256Bytes) {
  const LogMessageBody body =
      ParseMessageLine("2026-01-02 03:04:05\t0\ts\t" + std::string(300, 'x'), LongText::kTruncate);
  EXPECT_EQ(std::string(256, 'x'), body.text);
}

TEST(MessageLine, TruncateNeverCutsInsideAUtf8Character) {
  for (std::size_t before = 253; before <= 256; ++before) {
    const std::string text = std::string(before, 'x') + "\xE2\x82\xAC" + "tail";
    const LogMessageBody body = ParseMessageLine("2026-01-02 03:04:05\t0\ts\t" + text, LongText::kTruncate);
    EXPECT_EQ(before == 253 ? text.substr(0, 256) : std::string(before, 'x'), body.text) << before;
  }
}

TEST(MessageLine, TruncateCutsBytesThatAreNoUtf8AtTheEndOfTheRoom) {
  const LogMessageBody body =
      ParseMessageLine("2026-01-02 03:04:05\t0\ts\t" + std::string(300, '\x80'), LongText::kTruncate);
  EXPECT_EQ(std::string(256, '\x80'), body.text);
}

TEST(MessageLines, BothLineEndsAndAMissingLastOneAreRead) {
  std::istringstream input(
      "2026-01-02 03:04:05\t0\ts\tone\r\n2026-01-02 03:04:06\t1\ts\ttwo\n2026-01-02 03:04:07\t2\ts\tthree");
  const std::vector<LogMessageBody> messages = ReadMessageLines(input, LongText::kRefuse);
  ASSERT_EQ(3U, messages.size());
  EXPECT_STREQ("one", messages[0].text);
  EXPECT_STREQ("two", messages[1].text);
  EXPECT_STREQ("three", messages[2].text);
}

TEST(MessageLines, NoInputIsNoMessage) {
  std::istringstream input("");
  EXPECT_TRUE(ReadMessageLines(input, LongText::kRefuse).empty());
}

TEST(MessageLines, AFaultNamesItsLine) {
  std::istringstream input("2026-01-02 03:04:05\t0\ts\tone\n\n2026-01-02 03:04:05\t0\ts\tthree\n");
  try {
    ReadMessageLines(input, LongText::kRefuse);
    FAIL() << "the empty line was accepted";
  } catch (const MessageLineError& error) {
    EXPECT_EQ(0U, std::string(error.what()).find("line 2: expected four fields")) << error.what();
  }
}

}  // namespace
