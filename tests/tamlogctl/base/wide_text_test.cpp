// Texts on their way to and from Windows.

#include "tamlogctl/base/wide_text.h"

#include <gtest/gtest.h>

#include "client/message/win32.h"

namespace TamLogCtl {

namespace {

TEST(WideText, Utf8ComesBackUnchanged) {
  for (const std::string text : {"", "plain", "\xC3\xA4\xE2\x82\xAC", "\xF0\x9F\x98\x80 beyond 65,536"}) {
    EXPECT_EQ(WideToUtf8(Utf8ToWide(text)), text);
  }
  EXPECT_EQ(Utf8ToWide("\xC3\xA4"), L"\u00E4");
  EXPECT_EQ(Utf8ToWide("\xF0\x9F\x98\x80").size(), 2U);
}

TEST(WideText, PathsOfTheCodePageComeBackUnchanged) {
  const auto ansi = Utf8ToAnsi("C:\\Logs \xC3\xA4.dat");
  ASSERT_TRUE(ansi);
  EXPECT_EQ(AnsiToUtf8(*ansi), "C:\\Logs \xC3\xA4.dat");
  EXPECT_EQ(Utf8ToAnsi(""), "");
}

// The test program has the tool's manifest.
TEST(WideText, CodePageOfTheMachineIsNotThatOfTheProcess) {
  EXPECT_EQ(GetACP(), static_cast<UINT>(CP_UTF8));
  EXPECT_EQ(MachineCodePage(), 1252U);  // of every Wine prefix of the tests
  EXPECT_EQ(AnsiToWide("\xE4\x80"), L"\u00E4\u20AC");
  EXPECT_EQ(WideToAnsi(L"\u00E4\u20AC"), "\xE4\x80");
  EXPECT_EQ(Utf8ToAnsi("\xC3\xA4"), "\xE4");
  EXPECT_EQ(AnsiToUtf8("\xE4"), "\xC3\xA4");
  EXPECT_FALSE(Utf8ToAnsi("\xCE\xBB")) << "code page 1252 has no lambda";
}

}  // namespace

}  // namespace TamLogCtl
