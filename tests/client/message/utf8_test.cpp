#include "client/message/utf8.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "client/message/text_encoding.h"

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
  EXPECT_EQ(Visible("a\xE2\x80\xAE\x62"), "a\\xe2\\x80\\xae\x62");
  EXPECT_EQ(Visible("\xE2\x82\xAC\xE2\x80\xA6\xE2\x80\x93\xD8\xA7"),
            "\xE2\x82\xAC\xE2\x80\xA6\xE2\x80\x93\xD8\xA7");
}

// Of all characters up to U+FFFF.
TEST(Utf8, ControlsAreThoseThatATerminalMayObey) {
  const auto isControl = [](unsigned code) {
    const auto within = [code](unsigned first, unsigned last) { return code >= first && code <= last; };
    return code < 0x20 || within(0x7F, 0x9F) || code == 0x61C || within(0x200E, 0x200F) ||
           within(0x2028, 0x202E) || within(0x2066, 0x2069);
  };
  for (unsigned code = 0; code <= 0xFFFF; ++code) {
    if (code >= 0xD800 && code <= 0xDFFF) continue;
    std::string text(3, '\0');
    text.resize(TamLogClient::EncodeUtf8(static_cast<char16_t>(code), text.data()));
    EXPECT_EQ(TamLogClient::ControlLength(text), isControl(code) ? text.size() : 0) << code;
    if (!isControl(code)) continue;
    std::string escape;
    TamLogClient::AppendUnicodeEscape(text, escape);
    char expected[8];
    std::snprintf(expected, sizeof(expected), "\\u%04x", code);
    EXPECT_EQ(escape, expected);
  }
  EXPECT_EQ(TamLogClient::ControlLength(""), 0U);
  EXPECT_EQ(TamLogClient::ControlLength("\xE2\x80"), 0U);
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
