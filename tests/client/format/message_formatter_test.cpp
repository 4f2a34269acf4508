#include "client/format/message_formatter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "client/format/tsv_text.h"
#include "client/message/utf8.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::Format;
using TamLogClient::FormatOptions;
using TamLogClient::MessageFormatter;
using TamLogClient::TypeNames;

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
  EXPECT_EQ(
      Formatted(MakeMessage(), {Format::Short, true, true}),
      "\x1b[2m2026-01-01 03:04:05.678\x1b[0m \x1b[36mT2\x1b[0m \x1b[95mCamera\x1b[0m: Exposure 12 ms\n");
}

// Returns the line in colour after the time: type, source and text.
std::string Colored(const LogMessage& message, const std::string& typeNames) {
  std::string problem;
  FormatOptions options{Format::Short, true, true};
  if (!typeNames.empty()) options.typeNames = *TypeNames::Parse(typeNames, problem);
  const std::string line = Formatted(message, options);
  return line.substr(line.find("\x1b[0m ") + 5);
}

TEST(Formats, AColoredTypeIsShownByItsSeverity) {
  const LogMessage message = MakeMessage();  // of type 2
  const auto label = [&message](const std::string& name) {
    return Colored(message, "2=" + name).substr(0, 11);
  };
  EXPECT_EQ(label("err").substr(0, 10), "\x1b[1;31merr");
  EXPECT_EQ(label("Error").substr(0, 7), "\x1b[1;31m");
  EXPECT_EQ(label("warning").substr(0, 7), "\x1b[1;33m");
  EXPECT_EQ(label("crit").substr(0, 10), "\x1b[1;37;41m");
  EXPECT_EQ(label("info").substr(0, 9), "\x1b[32minfo");
  EXPECT_EQ(label("notice").substr(0, 4), "\x1b[1m");
  EXPECT_NE(Colored(message, "2=err").find(": \x1b[31mExposure 12 ms\x1b[0m\n"), std::string::npos);
  EXPECT_NE(Colored(message, "2=warn").find(": \x1b[33mExposure 12 ms\x1b[0m\n"), std::string::npos);
  EXPECT_NE(Colored(message, "2=info").find(": Exposure 12 ms\n"), std::string::npos);
  // A name that is no severity, and no name at all: a colour for each type, never that of an error.
  std::set<std::string> colors;
  for (std::uint32_t type = 0; type < 4; ++type) {
    LogMessage typed = MakeMessage();
    typed.body.type = type;
    colors.insert(Colored(typed, "").substr(0, 5));
    EXPECT_EQ(Colored(typed, "").find("31m"), std::string::npos);
  }
  EXPECT_EQ(colors.size(), 4U);
}

TEST(Formats, ASourceHasTheSameColorWhateverItsCase) {
  const auto color = [](const char* source) {
    const std::string line = Colored(MakeMessage("text", source), "");
    return line.substr(line.find(" \x1b[") + 1, 5);
  };
  EXPECT_EQ(color("Camera"), color("CAMERA"));
  std::set<std::string> colors;
  for (const char* const source : {"Camera", "Laser", "Stage", "Shutter", "Pump", "Door", "Heater", "Vacuum"})
    colors.insert(color(source));
  EXPECT_GE(colors.size(), 4U);
}

TEST(Formats, Full) {
  EXPECT_EQ(Formatted(MakeMessage(), {Format::Full}),
            "2026-01-01 03:04:05.678 #4711 T2 Camera [origin=6f726967696e2d31 spare=0 tail=7461696c]: "
            "Exposure 12 ms\n");
}

TEST(Formats, ASpreadsheetTakesNoTextForAFormula) {
  const auto cells = [](const std::string& text, Format format, bool spreadsheet) {
    FormatOptions options{format};
    options.spreadsheet = spreadsheet;
    options.fields = {TamLogClient::Field::Source, TamLogClient::Field::Text, TamLogClient::Field::Spare};
    LogMessage message = MakeMessage(text.c_str(), "@S");
    message.body.timestamp[7] = -9;
    return Formatted(message, options);
  };
  for (const char* const text : {"=1+1", "+1", "-1", "@x", "\t=1", "\r=1", "\n=1", "  =1",
                                 "\xEF\xBC\x9D"
                                 "1"}) {
    EXPECT_EQ(cells(text, Format::Csv, true), "\"'@S\",\"'" + std::string(text) + "\",-9\n");
    EXPECT_EQ(cells(text, Format::Csv, false), "\"@S\",\"" + std::string(text) + "\",-9\n");
  }
  EXPECT_EQ(cells("=\"a\"", Format::Csv, true), "\"'@S\",\"'=\"\"a\"\"\",-9\n");
  EXPECT_EQ(cells("=1", Format::Tsv, true), "'@S\t'=1\t-9\n");
  for (const char* const text : {"", " ", "text", "a=1", "1-1", "'=1", "\xEF\xBC\x9E"})
    EXPECT_EQ(cells(text, Format::Csv, true), "\"'@S\",\"" + std::string(text) + "\",-9\n");
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
  EXPECT_EQ(Formatted(MakeMessage("a\tb"), {Format::Tsv}), "2026-01-01 03:04:05.678\t2\tCamera\ta\\tb\n");
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
      if (chosen || format == Format::Tsv) options.fields = *all;
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

std::string FromEast(FormatOptions options, const std::string& host = "east") {
  std::string out;
  MessageFormatter(std::move(options)).Append(MakeMessage(), false, out, 1, host);
  return out;
}

TEST(Host, StandsWhereTheFormatHasAPlaceForIt) {
  using TamLogClient::Field;
  EXPECT_TRUE(FromEast({Format::Json}).starts_with("{\"host\":\"east\",\"time\":"));
  EXPECT_EQ(FromEast({.format = Format::Json, .fields = {Field::Text, Field::Host}}),
            "{\"text\":\"Exposure 12 ms\",\"host\":\"east\"}\n");
  EXPECT_EQ(FromEast({.format = Format::Csv, .fields = {Field::Host, Field::Source}}),
            "\"east\",\"Camera\"\n");
  EXPECT_EQ(FromEast({.format = Format::Tsv, .fields = {Field::Host, Field::Source}}), "east\tCamera\n");
  EXPECT_TRUE(FromEast({Format::Rfc5424}).starts_with("<14>1 2026-01-01T03:04:05.678Z east Camera "));
  EXPECT_NE(FromEast({Format::Export}).find("\n_HOSTNAME=east\nSYSLOG_IDENTIFIER=Camera\n"),
            std::string::npos);
}

TEST(Host, ANameThatIsNoHostNameIsWrittenWholeInRfc5424) {
  const std::string line = FromEast({Format::Rfc5424}, "our \"east\"");
  EXPECT_NE(line.find("Z our_\"east\" Camera - "), std::string::npos) << line;
  EXPECT_NE(line.find(R"( host="our \"east\"")"), std::string::npos) << line;
  EXPECT_NE(FromEast({Format::Rfc5424}, "-").find(" - Camera - "), std::string::npos);
  EXPECT_NE(FromEast({Format::Rfc5424}, "-").find(" host=\"-\""), std::string::npos);
}

TEST(Host, OnlyFormatsWithAPlaceForItCarryIt) {
  using TamLogClient::Field;
  for (const Format format : {Format::Json, Format::JsonArray, Format::Export, Format::Rfc5424})
    EXPECT_TRUE(MessageFormatter({format}).CarriesHost());
  for (const Format format :
       {Format::Short, Format::Full, Format::Cat, Format::Csv, Format::Tsv, Format::Raw})
    EXPECT_FALSE(MessageFormatter({format}).CarriesHost());
  EXPECT_TRUE(MessageFormatter({.format = Format::Csv, .fields = {Field::Host}}).CarriesHost());
  EXPECT_FALSE(MessageFormatter({.format = Format::Json, .fields = {Field::Text}}).CarriesHost());
  std::string problem;
  const auto layout = TamLogClient::TextTemplate::Parse("{host} {text}", problem);
  ASSERT_TRUE(layout);
  EXPECT_TRUE(MessageFormatter({.format = Format::Template, .layout = *layout}).CarriesHost());
  EXPECT_EQ(FromEast({.format = Format::Template, .layout = *layout}), "east Exposure 12 ms\n");
}

// A reader of rfc5424 takes a hyphen for "no name".
TEST(Formats, ASourceThatIsAHyphenKeepsItsNameInRfc5424) {
  EXPECT_NE(Formatted(MakeMessage("text", "-"), {Format::Rfc5424}).find("\" source=\"-\""),
            std::string::npos);
  EXPECT_NE(Formatted(MakeMessage("text", ""), {Format::Rfc5424}).find("\" source=\"\""), std::string::npos);
}

TEST(Formats, BytesThatTheTextDoesNotHaveStandInAFieldOfTheirOwn) {
  using TamLogClient::Field;
  using TamLogClient::TextEncoding;
  const auto latin = TextEncoding::FromName("latin-1");
  ASSERT_TRUE(latin);
  FormatOptions options{.format = Format::Csv, .fields = {Field::Text, Field::TextHex}};
  options.encoding = *latin;
  EXPECT_EQ(Formatted(MakeMessage("gr\xFC"
                                  "n"),
                      options),
            "\"gr\xC3\xBCn\",\"6772fc6e\"\n");
  EXPECT_EQ(Formatted(MakeMessage("green"), options), "\"green\",\"\"\n");
  const LogMessage message = MakeMessage(
      "gr\xFC"
      "n");
  options.format = Format::Json;
  EXPECT_EQ(Formatted(message, options), "{\"text\":\"gr\xC3\xBCn\",\"text_hex\":\"6772fc6e\"}\n");
  options.format = Format::Export;
  EXPECT_NE(Formatted(message, options).find("TAMLOG_TEXT_HEX=6772fc6e\n"), std::string::npos);
  options.format = Format::Rfc5424;
  EXPECT_NE(Formatted(message, options).find("\" text_hex=\"6772fc6e\"] "), std::string::npos);
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
