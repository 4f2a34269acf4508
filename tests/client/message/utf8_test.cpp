#include "client/message/utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using TamLogClient::CutAtCharacter;
using TamLogClient::IsValidUtf8;

std::string Visible(std::string_view text) {
  std::string out;
  TamLogClient::AppendVisible(text, out);
  return out;
}

TEST(Utf8, WellFormedSequencesOfEachLengthAreValid) {
  EXPECT_TRUE(IsValidUtf8(""));
  EXPECT_TRUE(IsValidUtf8("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x99\x82"));
}

TEST(Utf8, MalformedSequencesAreNot) {
  for (const char* text : {"\x80", "\xC3", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                           "\xF0\x80\x80\x80", "\xF5\x80\x80\x80", "\xE2\x82", "a\xFF"}) {
    EXPECT_FALSE(IsValidUtf8(text));
  }
}

TEST(Utf8, ControlCharactersAndForeignBytesBecomeVisible) {
  EXPECT_EQ(Visible("plain \\ \xC3\xA4"), "plain \\ \xC3\xA4");
  EXPECT_EQ(Visible("a\tb\nc\rd"), "a\\tb\\nc\\rd");
  EXPECT_EQ(Visible("\x1b[31m\x7f"), "\\x1b[31m\\x7f");
  EXPECT_EQ(Visible("\xC2\x9B\xE4"), "\\xc2\\x9b\\xe4");
}

TEST(Utf8, CuttingKeepsCharactersWhole) {
  EXPECT_EQ(CutAtCharacter("abc", 5), "abc");
  EXPECT_EQ(CutAtCharacter("abc", 2), "ab");
  EXPECT_EQ(CutAtCharacter("a\xE2\x82\xAC", 3), "a");
  EXPECT_EQ(CutAtCharacter("a\xE2\x82\xAC", 2), "a");
  EXPECT_EQ(CutAtCharacter("a\xE2\x82\xAC!", 4), "a\xE2\x82\xAC");
  EXPECT_EQ(CutAtCharacter("\xF0\x9F\x99\x82x", 3).size(), 3U);  // nothing would be left
  EXPECT_EQ(CutAtCharacter("\x80\x80\x80\x80\x80", 3).size(), 3U);
}

}  // namespace
