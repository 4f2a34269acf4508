#include "client/message/hex.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using TamLogClient::AppendHex;
using TamLogClient::AppendHexNumber;
using TamLogClient::FromHex;
using TamLogClient::TakeHexNumber;

TEST(Hex, EveryByteIsWrittenWithTwoDigitsAndReadBack) {
  for (int value = 0; value < 256; ++value) {
    const std::string byte(1, static_cast<char>(value));
    std::string digits = "x";
    AppendHex(byte, digits);
    ASSERT_EQ(digits.size(), 3U);
    EXPECT_EQ(FromHex(digits.substr(1)), byte) << digits;
  }
  std::string digits;
  AppendHex(std::string_view("\0\x7F\xAB", 3), digits);
  EXPECT_EQ(digits, "007fab");
  EXPECT_EQ(FromHex("aBcD"), "\xAB\xCD");
  EXPECT_EQ(FromHex(""), "");
}

TEST(Hex, AnythingElseIsRefused) {
  for (const char* const text : {"a", "abc", "g0", "0g", " 1", "1 ", "0x", "-1", "+1"})
    EXPECT_FALSE(FromHex(text)) << text;
}

TEST(Hex, NumbersGoBothWays) {
  for (const std::uint64_t value : {std::uint64_t{0}, std::uint64_t{0xf}, std::uint64_t{0x10}, UINT64_MAX}) {
    std::string text;
    AppendHexNumber(value, text);
    text += ".rest";
    std::string_view rest = text;
    std::uint64_t read = 1;
    EXPECT_TRUE(TakeHexNumber(rest, read));
    EXPECT_EQ(read, value);
    EXPECT_EQ(rest, ".rest");
  }
  for (std::string_view text : {"", ".1", "-1", "10000000000000000"}) {
    const std::string_view before = text;
    std::uint64_t read = 0;
    EXPECT_FALSE(TakeHexNumber(text, read)) << before;
    EXPECT_EQ(text, before);
  }
}

}  // namespace
