#include "client/message/text_encoding.h"

#include <gtest/gtest.h>

#include <string>

#include "client/message/hex.h"

namespace {

using TamLogClient::TextEncoding;

// Bytes that cannot be read are shown as <hex>.
std::string Decoded(const TextEncoding& encoding, std::string_view text) {
  std::string out;
  encoding.Decode(
      text, [&out](std::string_view utf8) { out += utf8; },
      [&out](char byte) {
        out += '<';
        TamLogClient::AppendHex({&byte, 1}, out);
        out += '>';
      });
  return out;
}

std::string Decoded(const char* name, std::string_view text) {
  const auto encoding = TextEncoding::FromName(name);
  return encoding ? Decoded(*encoding, text) : "unknown " + std::string(name);
}

TEST(TextEncoding, Utf8HandsOnWhatIsValidAndNamesTheBytesThatAreNot) {
  EXPECT_EQ(Decoded("utf-8", ""), "");
  EXPECT_EQ(Decoded("utf-8", "plain"), "plain");
  EXPECT_EQ(Decoded("utf-8", "\xC3\xA4\xFFx\xE2\x82"), "\xC3\xA4<ff>x<e2><82>");
}

TEST(TextEncoding, AsciiReadsNoByteAbove) {
  EXPECT_EQ(Decoded("ascii", "a\xC3\xA4z"), "a<c3><a4>z");
}

TEST(TextEncoding, SingleByteEncodingsBecomeUtf8) {
  EXPECT_EQ(Decoded("latin-1", "gr\xFC\xDF\x80"), "gr\xC3\xBC\xC3\x9F\xC2\x80");
  EXPECT_EQ(Decoded("windows-1252", "\x80 \x81 \xFC"), "\xE2\x82\xAC <81> \xC3\xBC");
  EXPECT_EQ(Decoded("windows-1250", "\xB3\xF3\x9F"), "\xC5\x82\xC3\xB3\xC5\xBA");
  EXPECT_EQ(Decoded("windows-1251", "\xCF\xF0\x98"), "\xD0\x9F\xD1\x80<98>");
  EXPECT_EQ(Decoded("cp437", "\x84\xDB\xFF"), "\xC3\xA4\xE2\x96\x88\xC2\xA0");
  EXPECT_EQ(Decoded("cp850", "\x84\xD5"), "\xC3\xA4\xC4\xB1");
}

TEST(TextEncoding, ValidUtf8IsStillReadByTheEncodingThatWasNamed) {
  EXPECT_EQ(Decoded("windows-1252", "\xC3\xA4"), "\xC3\x83\xC2\xA4");
}

TEST(TextEncoding, AGuessTakesUtf8FirstAndThenTheFallback) {
  const auto* const table = TamLogClient::UpperHalfOfCodePage(1252);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(Decoded(TextEncoding::Guessed(table), "\xC3\xA4"), "\xC3\xA4");
  EXPECT_EQ(Decoded(TextEncoding::Guessed(table), "\xE4"), "\xC3\xA4");
  EXPECT_EQ(Decoded(TextEncoding::Guessed(table), "\xC3\xA4 \xE4"), "\xC3\x83\xC2\xA4 \xC3\xA4");
  EXPECT_EQ(Decoded(TextEncoding::Guessed(), "\xE4"), "<e4>");
  EXPECT_TRUE(TextEncoding::Guessed(table).IsGuessed());
  EXPECT_FALSE(TextEncoding::FromName("utf-8")->IsGuessed());
}

TEST(TextEncoding, LongTextsAreHandedOnWhole) {
  const std::string text(1000, '\x80');
  std::string expected;
  for (int i = 0; i < 1000; ++i) expected += "\xE2\x82\xAC";
  EXPECT_EQ(Decoded("windows-1252", text), expected);
}

TEST(TextEncoding, IsFoundByItsNamesInAnyCase) {
  for (const char* const name :
       {"UTF-8", "utf8", "US-ASCII", "ISO-8859-1", "Latin1", "Windows-1251", "CP850", "1252", "ibm437"})
    EXPECT_TRUE(TextEncoding::FromName(name)) << name;
  for (const char* const name : {"", "utf-16", "koi8-r", "cp", "utf-8 "})
    EXPECT_FALSE(TextEncoding::FromName(name)) << name;
}

TEST(TextEncoding, CodePagesAreKnownByTheirNumbers) {
  for (const unsigned number : {437U, 850U, 1250U, 1251U, 1252U, 20127U, 28591U})
    EXPECT_NE(TamLogClient::UpperHalfOfCodePage(number), nullptr) << number;
  EXPECT_EQ(TamLogClient::UpperHalfOfCodePage(65001), nullptr);
  EXPECT_EQ(TamLogClient::UpperHalfOfCodePage(932), nullptr);
}

}  // namespace
