#include "client/format/message_formatter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "client/format/tsv_text.h"
#include "client/message/utf8.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::Format;
using TamLogClient::FormatOptions;
using TamLogClient::MessageFormatter;

LogMessage MakeMessage(const std::string& text = "Exposure 12 ms", const std::string& source = "Camera") {
  LogMessage message{};
  message.sequence = 4711;
  message.body = TamLogTest::MakeBody(11045678, text, source, 2);
  std::memcpy(message.body.origin, "origin-1", 8);
  std::memcpy(message.body.tail, "tail", 4);
  return message;
}

std::string CursorFor(const LogMessage& message, std::uint32_t twin = 1) {
  return FormatCursor(TamLogClient::CursorOf(message.body, twin));
}

std::string Formatted(const LogMessage& message, FormatOptions options, bool late = false) {
  std::string out;
  MessageFormatter(options).Append(message, late, out);
  return out;
}

TEST(Formats, Short) {
  EXPECT_EQ(Formatted(MakeMessage(), {Format::Short}), "2026-01-01 03:04:05.678 T2 Camera: Exposure 12 ms\n");
  EXPECT_EQ(Formatted(MakeMessage(), {Format::Short}, true),
            "2026-01-01 03:04:05.678 T2 Camera (late): Exposure 12 ms\n");
  EXPECT_EQ(Formatted(MakeMessage("a\nb\x1b[2J", "S\t"), {Format::Short}),
            "2026-01-01 03:04:05.678 T2 S\\t: a\\nb\\x1b[2J\n");
}

TEST(Formats, ShortInColor) {
  EXPECT_EQ(Formatted(MakeMessage(), {Format::Short, true, true}),
            "\x1b[2m2026-01-01 03:04:05.678 T2\x1b[0m\x1b[36m Camera\x1b[0m: Exposure 12 ms\n");
}

TEST(Formats, Full) {
  EXPECT_EQ(Formatted(MakeMessage(), {Format::Full}),
            "2026-01-01 03:04:05.678 #4711 T2 Camera [origin=6f726967696e2d31 spare=0 tail=7461696c]: "
            "Exposure 12 ms\n");
}

TEST(Formats, Cat) {
  EXPECT_EQ(Formatted(MakeMessage("a\x1b[2J"), {Format::Cat}), "a\x1b[2J\n");
  EXPECT_EQ(Formatted(MakeMessage("a\x1b[2J"), {Format::Cat, true}), "a\\x1b[2J\n");
}

TEST(Formats, Json) {
  const LogMessage message = MakeMessage();
  EXPECT_EQ(Formatted(message, {Format::Json}),
            "{\"time\":\"2026-01-01T03:04:05.678\",\"seq\":4711,\"type\":2,\"source\":\"Camera\",\"text\":"
            "\"Exposure 12 ms\",\"origin\":\"6f726967696e2d31\",\"tail\":\"7461696c\",\"cursor\":\"" +
                CursorFor(message) + "\"}\n");
  const LogMessage escaped = MakeMessage("q\"b\\s\n\t\r\x01\x7f\xC2\x9B\xC3\xA4");
  EXPECT_EQ(Formatted(escaped, {Format::Json}, true),
            "{\"time\":\"2026-01-01T03:04:05.678\",\"seq\":4711,\"type\":2,\"source\":\"Camera\",\"text\":"
            "\"q\\\"b\\\\s\\n\\t\\r\\u0001\\u007f\\u009b\xC3\xA4\",\"origin\":\"6f726967696e2d31\",\"tail\":"
            "\"7461696c\",\"cursor\":\"" +
                CursorFor(escaped) + "\",\"late\":true}\n");
}

TEST(Formats, JsonStaysValidUtf8AndKeepsTheBytesInAFieldOfTheirOwn) {
  const std::string line = Formatted(MakeMessage("gr\xFC\xDF", "K\xE4se"), {Format::Json});
  EXPECT_TRUE(TamLogClient::IsValidUtf8(line));
  EXPECT_NE(line.find("\"source\":\"K\xEF\xBF\xBDse\",\"source_hex\":\"4be47365\""), std::string::npos)
      << line;
  EXPECT_NE(line.find("\"text\":\"gr\xEF\xBF\xBD\xEF\xBF\xBD\",\"text_hex\":\"6772fcdf\""), std::string::npos)
      << line;
}

TEST(Formats, JsonShowsAnImpossibleTimeAsItsWords) {
  LogMessage message = MakeMessage();
  message.body.timestamp[1] = 0;
  message.body.timestamp[7] = -9;
  EXPECT_EQ(Formatted(message, {Format::Json})
                .rfind("{\"time\":null,\"time_words\":[2026,0,1,3,4,5,678,-9],\"seq\"", 0),
            0U);
}

TEST(Formats, Tsv) {
  const LogMessage message = MakeMessage("a\tb");
  EXPECT_EQ(Formatted(message, {Format::Tsv}),
            "2026-01-01 03:04:05.678\t2\tCamera\ta\\tb\t" + CursorFor(message) + "\n");
}

TEST(Formats, CsvWithAHeadLineAndDoubledQuotes) {
  std::string head;
  MessageFormatter({Format::Csv}).AppendHead(head);
  EXPECT_EQ(head, "time,seq,type,source,text,cursor\n");
  const LogMessage message = MakeMessage("say \"a,b\"\nc");
  EXPECT_EQ(Formatted(message, {Format::Csv}),
            "\"2026-01-01 03:04:05.678\",4711,2,\"Camera\",\"say \"\"a,b\"\"\nc\",\"" + CursorFor(message) +
                "\"\n");
  EXPECT_TRUE(TamLogClient::IsValidUtf8(Formatted(MakeMessage("\xFF\x80"), {Format::Csv})));
  EXPECT_EQ(Formatted(MakeMessage("\x1b["), {Format::Csv, true}).find('\x1b'), std::string::npos);
}

TEST(Formats, EachDataFormatHasTheCursorOfTheMessage) {
  const LogMessage message = MakeMessage();
  std::string problem;
  const auto all = TamLogClient::ParseFields("text,cursor", problem);
  const auto layout = TamLogClient::TextTemplate::Parse("{cursor}", problem);
  ASSERT_TRUE(all && layout) << problem;
  for (const Format format : {Format::Json, Format::JsonArray, Format::Csv, Format::Tsv, Format::Export,
                              Format::Rfc5424, Format::Template}) {
    for (const bool chosen : {false, true}) {
      FormatOptions options{format};
      options.layout = *layout;
      if (chosen) options.fields = *all;
      std::string out;
      MessageFormatter formatter(options);
      EXPECT_TRUE(formatter.ShowsCursors());
      formatter.Append(message, false, out, 3);
      EXPECT_NE(out.find(CursorFor(message, 3)), std::string::npos) << out;
    }
  }
  for (const Format format : {Format::Short, Format::Full, Format::Cat, Format::Raw})
    EXPECT_FALSE(MessageFormatter({format}).ShowsCursors());
}

TEST(Formats, OnlyCsvHasAHeadLine) {
  for (const Format format : {Format::Short, Format::Full, Format::Cat, Format::Json, Format::Tsv}) {
    std::string head;
    MessageFormatter({format}).AppendHead(head);
    EXPECT_EQ(head, "");
  }
}

TEST(Formats, AreKnownByTheirNames) {
  EXPECT_EQ(TamLogClient::FormatFromName("ndjson"), Format::Json);
  EXPECT_EQ(TamLogClient::FormatFromName("short"), Format::Short);
  EXPECT_FALSE(TamLogClient::FormatFromName("xml"));
}

TEST(Formats, TextWithoutEndStopsAtItsField) {
  LogMessage message = MakeMessage();
  std::memset(message.body.text, 'x', sizeof(message.body.text));
  EXPECT_EQ(Formatted(message, {Format::Cat}), std::string(kTextSize, 'x') + "\n");
}

}  // namespace
