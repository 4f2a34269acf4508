#include "client/format/format_template.h"

#include <gtest/gtest.h>

#include <string>

#include "client/format/message_formatter.h"
#include "tests/client/format/nasty_messages.h"

namespace {

using TamLogClient::Format;
using TamLogClient::FormatOptions;
using TamLogClient::MessageFormatter;
using TamLogClient::TextTemplate;

std::string Problem(const char* text) {
  std::string problem;
  return TextTemplate::Parse(text, problem) ? "" : problem;
}

std::string FirstLine(const char* text) {
  std::string problem;
  FormatOptions options;
  options.format = Format::Template;
  options.layout = *TextTemplate::Parse(text, problem);
  std::string out;
  MessageFormatter(options).Append(TamLogTest::NastyMessages()[0], true, out);
  return out;
}

TEST(TextTemplate, PutsTheFieldsIntoTheirPlaces) {
  EXPECT_EQ(FirstLine("{time} {source}: {text}"), "2026-01-01 03:04:05.678 Camera: Exposure 12 ms\n");
  EXPECT_EQ(FirstLine("{seq}|{type}|{label}|{origin}|{tail}|{spare}|{late}"),
            "4711|2|T2|6f726967696e2d00|7461696c|0|late\n");
}

TEST(TextTemplate, WordsAloneAndNothingAreLinesToo) {
  EXPECT_EQ(FirstLine("words"), "words\n");
  EXPECT_EQ(FirstLine(""), "\n");
}

TEST(TextTemplate, KnowsEscapes) {
  EXPECT_EQ(FirstLine("{{{source}}}"), "{Camera}\n");
  EXPECT_EQ(FirstLine("a\\tb\\nc\\\\d"), "a\tb\nc\\d\n");
}

TEST(TextTemplate, MistakesNameTheMend) {
  EXPECT_NE(Problem("{when}").find("unknown field {when}; the fields are time, seq, type"),
            std::string::npos);
  EXPECT_NE(Problem("{}").find("unknown field {}"), std::string::npos);
  EXPECT_NE(Problem("{Time}").find("unknown field {Time}"), std::string::npos);
  EXPECT_EQ(Problem("a {time"), "'a {time' has a { without a }; write {{ for a brace");
  EXPECT_EQ(Problem("{"), "'{' has a { without a }; write {{ for a brace");
  EXPECT_EQ(Problem("{time{"), "'{time{' has a { without a }; write {{ for a brace");
  EXPECT_EQ(Problem("a } b"), "'a } b' has a } without a {; write }} for a brace");
  EXPECT_NE(Problem("C:\\logs").find("write \\\\ for a backslash"), std::string::npos);
  EXPECT_NE(Problem("end\\").find("write \\\\ for a backslash"), std::string::npos);
}

}  // namespace
