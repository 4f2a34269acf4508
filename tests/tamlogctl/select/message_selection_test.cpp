#include "tamlogctl/select/message_selection.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/ring_model.h"

namespace {

using TamLogClient::LogMessageView;
using TamLogCtl::MessageSelection;
using TamLogCtl::ParseSourceTerm;
using TamLogCtl::ParseTypes;

bool Wants(const MessageSelection& selection, const std::string& source, std::uint32_t type = 0,
           const std::string& text = "text", std::int32_t time = 1000) {
  LogMessage message{};
  message.body = TamLogTest::MakeBody(time, text, source, type);
  return selection.Wants(LogMessageView(message));
}

TEST(Selection, WithoutTermsWantsEverything) {
  EXPECT_TRUE(MessageSelection().Empty());
  EXPECT_TRUE(Wants({}, "Camera"));
}

TEST(Selection, TypesAreListsAndRanges) {
  EXPECT_EQ(ParseTypes("0"), 1U);
  EXPECT_EQ(ParseTypes("0,2"), 5U);
  EXPECT_EQ(ParseTypes("1-3"), 14U);
  EXPECT_EQ(ParseTypes("0,2-3"), 13U);
  for (const char* text : {"", "4", "0,", ",0", "3-1", "1-", "x", "0 1"})
    EXPECT_FALSE(ParseTypes(text)) << text;
}

TEST(Selection, AColonMayBelongToTheName) {
  EXPECT_EQ(ParseSourceTerm("Camera:0,2")->types, 5U);
  EXPECT_EQ(ParseSourceTerm("a:b")->name, "a:b");
  EXPECT_EQ(ParseSourceTerm("a:b:1")->name, "a:b");
  EXPECT_FALSE(ParseSourceTerm(""));
  EXPECT_FALSE(ParseSourceTerm(":1"));
}

TEST(Selection, NamesAreComparedWithoutCaseAndMayHoldStars) {
  MessageSelection selection;
  selection.Include(*ParseSourceTerm("cam*"));
  selection.Include(*ParseSourceTerm("*x*y"));
  EXPECT_TRUE(Wants(selection, "Camera"));
  EXPECT_TRUE(Wants(selection, "CAM"));
  EXPECT_TRUE(Wants(selection, "axxbyy"));
  EXPECT_FALSE(Wants(selection, "Web cam"));
  EXPECT_FALSE(Wants(selection, ""));
}

TEST(Selection, ExclusionsWinOverInclusions) {
  MessageSelection selection;
  selection.Include(*ParseSourceTerm("Camera"));
  selection.Exclude(*ParseSourceTerm("Camera:1"));
  EXPECT_TRUE(Wants(selection, "Camera", 0));
  EXPECT_FALSE(Wants(selection, "Camera", 1));
  EXPECT_FALSE(Wants(selection, "Laser", 0));
}

TEST(Selection, ByTypeAndTime) {
  MessageSelection selection;
  selection.SetTypes(2);
  EXPECT_TRUE(Wants(selection, "S", 1));
  EXPECT_FALSE(Wants(selection, "S", 0));
  MessageSelection times;
  times.SetSince(TimeKey(TamLogTest::MakeBody(1000, "")));
  times.SetUntil(TimeKey(TamLogTest::MakeBody(2000, "")));
  EXPECT_FALSE(Wants(times, "S", 0, "", 999));
  EXPECT_TRUE(Wants(times, "S", 0, "", 1000));
  EXPECT_TRUE(Wants(times, "S", 0, "", 2000));
  EXPECT_FALSE(Wants(times, "S", 0, "", 2001));
}

TEST(SourceTerms, WhatReadsAsTypesButAreNoneIsRefused) {
  for (const char* const text :
       {":9", ":", "Camera:", "Camera:9", "Camera:0,", "Camera:3-1", "Camera:0,9", "", ":0", "a:b:7"}) {
    EXPECT_FALSE(TamLogCtl::ParseSourceTerm(text)) << text;
  }
  EXPECT_EQ(TamLogCtl::ParseSourceTerm("a:b")->name, "a:b");
  EXPECT_EQ(TamLogCtl::ParseSourceTerm("a:b:1")->name, "a:b");
}

class SelectionTest : public testing::Test {
 protected:
  bool Wants(const char* source, const char* text, std::uint32_t type = 0) const {
    LogMessage message{};
    message.body = TamLogTest::MakeBody(0, text, source, type);
    return selection.Wants(TamLogClient::LogMessageView(message));
  }

  void Add(const char* pattern, bool anti) {
    std::string problem;
    auto made = TamLogCtl::TextPattern::Make(pattern, false, false, problem);
    ASSERT_TRUE(made) << problem;
    if (anti) {
      selection.AddAntiPattern(std::move(*made));
    } else {
      selection.AddPattern(std::move(*made));
    }
  }

  TamLogCtl::MessageSelection selection;
};

TEST_F(SelectionTest, OneOfThePatternsAndNoneOfTheAntiPatterns) {
  Add("out", false);
  Add("los[st]", false);
  Add("test", true);
  EXPECT_FALSE(selection.Empty());
  EXPECT_TRUE(Wants("A", "timed out"));
  EXPECT_TRUE(Wants("A", "lost"));
  EXPECT_FALSE(Wants("A", "fine"));
  EXPECT_FALSE(Wants("A", "test lost"));
}

TEST_F(SelectionTest, TermsOfAFileIncludeAndExclude) {
  std::size_t badLine = 0;
  ASSERT_TRUE(
      selection.AddTerms("\xEF\xBB\xBF# comment\r\n\n  Cam*:0,2 \r\n!Camera2\n\\!odd\n\\#1", badLine));
  EXPECT_TRUE(Wants("Camera1", ""));
  EXPECT_FALSE(Wants("Camera1", "", 1));
  EXPECT_FALSE(Wants("Camera2", ""));
  EXPECT_TRUE(Wants("!odd", ""));
  EXPECT_TRUE(Wants("#1", ""));
  EXPECT_FALSE(Wants("Laser", ""));
}

TEST_F(SelectionTest, BadLineOfAFileIsNamed) {
  std::size_t badLine = 0;
  EXPECT_FALSE(selection.AddTerms("A\n# x\nB:9\n", badLine));
  EXPECT_EQ(badLine, 3U);
  EXPECT_FALSE(selection.AddTerms("!", badLine));
  EXPECT_EQ(badLine, 1U);
  EXPECT_TRUE(selection.AddTerms("", badLine));
}

}  // namespace
