// Texts on their way to and from Windows.

#include "tamlogctl/base/wide_text.h"

#include <gtest/gtest.h>

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

}  // namespace

}  // namespace TamLogCtl
