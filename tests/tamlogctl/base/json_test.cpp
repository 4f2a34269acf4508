// JSON and columns as the command line prints them. Compiled natively.

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>

#include "tamlogctl/base/columns.h"
#include "tamlogctl/base/json.h"

namespace {

using TamLogCtl::Json;
using TamLogCtl::JsonArray;
using TamLogCtl::JsonObject;
using TamLogCtl::kOneLine;
using TamLogCtl::ParseJson;
using TamLogCtl::WriteJson;

TEST(Json, MembersAreWrittenInTheirOrder) {
  const JsonObject object{{"z", 1U},
                          {"a", -1},
                          {"list", JsonArray{true, false, Json()}},
                          {"half", 0.5},
                          {"none", std::optional<int>()},
                          {"empty", JsonObject()}};
  EXPECT_EQ(WriteJson(object),
            R"({"z":1,"a":-1,"list":[true,false,null],"half":0.5,"none":null,"empty":{}})");
  EXPECT_EQ(WriteJson(JsonObject{{"a", JsonArray{1U}}}, 2), "{\n  \"a\": [\n    1\n  ]\n}");
}

TEST(Json, NumbersKeepEveryDigit) {
  constexpr auto kMost = std::numeric_limits<std::uint64_t>::max();
  constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(WriteJson(JsonArray{kMost, kLeast}), "[18446744073709551615,-9223372036854775808]");
  const auto read = ParseJson("[18446744073709551615,-9223372036854775808,1.5]");
  ASSERT_TRUE(read && read->AsArray() != nullptr);
  const JsonArray& list = *read->AsArray();
  EXPECT_EQ(list[0].AsUnsigned(), kMost);
  EXPECT_EQ(list[0].AsInteger(), std::nullopt);
  EXPECT_EQ(list[1].AsInteger(), kLeast);
  EXPECT_EQ(list[1].AsUnsigned(), std::nullopt);
  EXPECT_EQ(list[2].AsInteger(), std::nullopt);
}

TEST(Json, TextIsEscapedAndAlwaysUtf8) {
  EXPECT_EQ(WriteJson("a\"b\\\n\x01\xC3\xA9"), "\"a\\\"b\\\\\\n\\u0001\xC3\xA9\"");
  EXPECT_EQ(WriteJson("\x7F\xC2\x9B|\xE2\x80\xAE"), R"("\u007f\u009b|\u202e")");
  EXPECT_EQ(WriteJson(JsonObject{{"\xE2\x80\xAE", "\n"}}, 2), "{\n  \"\\u202e\": \"\\n\"\n}");
  EXPECT_EQ(WriteJson(std::string("a\xFFz")), "\"a\xEF\xBF\xBDz\"");
}

TEST(Json, WhatWasWrittenIsReadBack) {
  const std::string text = R"({"a":[1,-2,0.25,null,true,{"b":"c"}],"d":{},"e":[]})";
  const auto read = ParseJson(text);
  ASSERT_TRUE(read);
  EXPECT_EQ(WriteJson(*read, kOneLine), text);
}

TEST(Json, LastOfTwoMembersCounts) {
  const auto read = ParseJson(R"({"a":"first","b":1,"a":"last"})");
  ASSERT_TRUE(read && read->FindString("a") != nullptr);
  EXPECT_EQ(*read->FindString("a"), "last");
  EXPECT_EQ(read->FindString("b"), nullptr);
  EXPECT_EQ(read->Find("c"), nullptr);
}

TEST(Json, AnythingElseIsRejected) {
  for (const char* const text : {"", "{", "{]", "[1,]", "{\"a\"}", "{\"a\":1}x", "nul", "'a'", "\"\xFF\""}) {
    EXPECT_FALSE(ParseJson(text)) << text;
  }
}

// A line of a million brackets would overflow the stack.
TEST(Json, MoreThanAHundredLevelsAreRejected) {
  const auto nested = [](std::size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); };
  EXPECT_TRUE(ParseJson(nested(100)));
  EXPECT_FALSE(ParseJson(nested(101)));
  EXPECT_FALSE(ParseJson(std::string(1000000, '[')));
}

TEST(Columns, WideCharactersTakeTwo) {
  EXPECT_EQ(TamLogCtl::AlignedLeft("ab", 4), "ab  ");
  EXPECT_EQ(TamLogCtl::AlignedRight("ab", 4), "  ab");
  EXPECT_EQ(TamLogCtl::AlignedLeft("\xE6\x97\xA5", 4), "\xE6\x97\xA5  ");
  EXPECT_EQ(TamLogCtl::AlignedLeft("longer", 4), "longer");
  EXPECT_EQ(TamLogCtl::Fixed(2.25, 1), "2.2");
  EXPECT_EQ(TamLogCtl::Fixed(100, 1), "100.0");
}

}  // namespace
