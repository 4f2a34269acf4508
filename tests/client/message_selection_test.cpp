#include "client/message_selection.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/client/ring_model.h"

namespace {

using TamLogClient::LogMessageView;
using TamLogClient::MessageSelection;
using TamLogClient::ParseSourceTerm;
using TamLogClient::ParseTypes;

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

TEST(Selection, LowerCasePatternsIgnoreCase) {
  MessageSelection lower;
  ASSERT_TRUE(lower.SetPattern("time.?out", false, false));
  EXPECT_TRUE(Wants(lower, "S", 0, "Time-Out reached"));
  MessageSelection upper;
  ASSERT_TRUE(upper.SetPattern("Time", false, false));
  EXPECT_FALSE(Wants(upper, "S", 0, "time"));
  MessageSelection ignored;
  ASSERT_TRUE(ignored.SetPattern("Time", false, true));
  EXPECT_TRUE(Wants(ignored, "S", 0, "time"));
}

TEST(Selection, FixedPatternsAreNoExpressions) {
  MessageSelection selection;
  ASSERT_TRUE(selection.SetPattern("a.c(", true, false));
  EXPECT_TRUE(Wants(selection, "S", 0, "xA.C(y"));
  EXPECT_FALSE(Wants(selection, "S", 0, "abc("));
  EXPECT_FALSE(MessageSelection().SetPattern("a(", false, false));
}

}  // namespace
