// The texts that tamlogctl prints and reads: lists of filters, and settings.

#include <gtest/gtest.h>

#include "tamlogctl/base/counted.h"
#include "tamlogctl/server/filter_text.h"
#include "tamlogctl/server/settings_text.h"

namespace {

using TamLogCtl::FilterEntry;
using Filters = std::vector<FilterEntry>;

Filters Parsed(const std::string& text) {
  std::string problem;
  const auto filters = TamLogCtl::ParseFilters(text, problem);
  EXPECT_TRUE(filters) << problem;
  return filters.value_or(Filters{});
}

std::string Problem(const std::string& text) {
  std::string problem;
  EXPECT_FALSE(TamLogCtl::ParseFilters(text, problem)) << text;
  return problem;
}

void ExpectSame(const Filters& left, const Filters& right) {
  ASSERT_EQ(left.size(), right.size());
  for (std::size_t i = 0; i < left.size(); ++i) {
    EXPECT_EQ(left[i].text, right[i].text);
    EXPECT_EQ(left[i].include, right[i].include);
  }
}

const Filters kAwkward{
    {"Camera", true}, {"", false}, {"tab\tline\nback\\", false}, {"\xE4\xFF", true}, {"\"q\"", false}};

TEST(FilterText, BothFormsAreReadBackByteForByte) {
  ExpectSame(Parsed(TamLogCtl::FiltersAsTsv(kAwkward)), kAwkward);
  ExpectSame(Parsed(TamLogCtl::FiltersAsJson(kAwkward)), kAwkward);
}

TEST(FilterText, EmptyInputAndEmptyLinesAreNoFilters) {
  EXPECT_TRUE(Parsed("").empty());
  EXPECT_TRUE(Parsed("\n\r\n").empty());
  EXPECT_TRUE(Parsed(" []").empty());
  EXPECT_EQ(Parsed("include\tCamera\r\n")[0].text, "Camera");
}

TEST(FilterText, ProblemsNameThePlaceAndTheFix) {
  EXPECT_NE(Problem("include\ta\nnonsense").find("line 2: expected include or exclude"), std::string::npos);
  EXPECT_NE(Problem("keep\ta").find("line 1"), std::string::npos);
  EXPECT_NE(Problem("[{\"kind\":\"include\"}]").find("entry 1"), std::string::npos);
  EXPECT_NE(Problem("[{\"kind\":\"exclude\",\"text_hex\":\"E\"}]").find("entry 1"), std::string::npos);
  EXPECT_NE(Problem("[{\"kind\":3,\"text\":\"a\"}]").find("entry 1"), std::string::npos);
  EXPECT_NE(Problem("[").find("JSON array"), std::string::npos);
}

TEST(FilterText, ListShowsTheRuleTheNumbersAndTheRemarks) {
  EXPECT_EQ(TamLogCtl::FiltersAsText({{"Camera", true}, {"", true}, {"Laser", false}}),
            "rule: only included sources are kept; exclude filters are ignored\n"
            "  1  include  Camera\n"
            "  2  include  \"\"  (empty: matches every source)\n"
            "  3  exclude  Laser  (ignored while there are include filters)\n");
  EXPECT_EQ(TamLogCtl::FiltersAsText({}), "rule: every source is kept\n");
  EXPECT_EQ(TamLogCtl::FiltersAsText({{"Laser ", false}, {"a\x1b[31mb", false}}),
            "rule: all sources but the excluded ones are kept\n"
            "  1  exclude  \"Laser \"\n"
            "  2  exclude  a\\x1b[31mb\n");
  EXPECT_EQ(TamLogCtl::CountedAre(1, "message") + TamLogCtl::CountedAre(2, "message"),
            "1 message is2 messages are");
}

TEST(FilterText, VerdictNamesTheFilterThatDecides) {
  const Filters filters{{"Heart\n", false}, {"Poll", false}};
  const auto verdict = [&filters](const std::string& source, std::uint32_t type) {
    return TamLogCtl::VerdictText(filters, JudgeMessage(filters, 7, source, type), type);
  };
  EXPECT_EQ(verdict("Poll", 1), "dropped by exclude filter 'Poll' (2)");
  EXPECT_EQ(verdict("Heart\nbeat", 1), "dropped by exclude filter 'Heart\\n' (1)");
  EXPECT_EQ(verdict("Camera", 1), "kept: no filter matches");
  EXPECT_EQ(verdict("Camera", 3), "dropped by type: 3 is switched off");
  EXPECT_EQ(verdict("Camera", 4), "dropped: there is no type 4");
}

TEST(FilterText, OverLongOnesAreRefused) {
  EXPECT_EQ(TamLogCtl::FilterProblem({std::string(127, 'f'), true}), "");
  EXPECT_NE(TamLogCtl::FilterProblem({std::string(128, 'f'), true}).find("127 are allowed"),
            std::string::npos);
  EXPECT_NE(TamLogCtl::FilterProblem({std::string("a\0b", 3), true}), "");
}

TEST(FilterText, KnownFiltersAreRemoved) {
  Filters added{{"camera", true}, {"Camera", false}, {"Laser", true}, {"LASER", true}, {"Cam", true}};
  const Filters removed = TamLogCtl::RemoveKnown({{"Camera", true}}, added);
  ExpectSame(removed, {{"camera", true}, {"LASER", true}});
  ExpectSame(added, {{"Camera", false}, {"Laser", true}, {"Cam", true}});
}

TEST(SettingsText, ChangesAreOneLineEach) {
  EXPECT_TRUE(TamLogCtl::ChangeLines({1, 2, 3, 4}, {9, 2, 3, 4}).empty());
  EXPECT_EQ(TamLogCtl::ChangeLines({1, 2, 3, 4}, {1, 5, 7, 6}),
            (std::vector<std::string>{"poll 2 ms -> 5 ms", "save 4 s -> 6 s", "types 0,1 -> 0,1,2"}));
}

TEST(SettingsText, QuestionNamesTheNumberOfMessages) {
  EXPECT_EQ(TamLogCtl::EmptyQuestion(0), "Empty all 0 messages?");
  EXPECT_EQ(TamLogCtl::EmptyQuestion(1), "Empty the log of its one message?");
  EXPECT_EQ(TamLogCtl::EmptyQuestion(999), "Empty all 999 messages?");
  EXPECT_EQ(TamLogCtl::EmptyQuestion(20000), "Empty all 20,000 messages?");
  EXPECT_EQ(TamLogCtl::EmptyQuestion(1000000), "Empty all 1,000,000 messages?");
}

TEST(SettingsText, WhatGetPrintsSetReads) {
  const SettingsBody settings{50000, 1000, 11, 300};
  std::string problem;
  const auto change = TamLogCtl::ParseSettings(TamLogCtl::SettingsAsJson(settings, 50000), problem);
  ASSERT_TRUE(change) << problem;
  const SettingsBody result = TamLogCtl::Changed({1, 2, 3, 4}, *change);
  EXPECT_EQ(result.maxMessage, 50000U);
  EXPECT_EQ(result.devicePollRate, 1000U);
  EXPECT_EQ(result.typeFilter, 11U);
  EXPECT_EQ(result.saveRate, 300U);
}

TEST(SettingsText, WhatIsNotNamedStays) {
  std::string problem;
  const auto change = TamLogCtl::ParseSettings(R"({"poll_ms":20,"types":9})", problem);
  ASSERT_TRUE(change) << problem;
  const SettingsBody result = TamLogCtl::Changed({1, 2, 3, 4}, *change);
  EXPECT_EQ(result.maxMessage, 1U);
  EXPECT_EQ(result.devicePollRate, 20U);
  EXPECT_EQ(result.typeFilter, 9U);
  EXPECT_EQ(result.saveRate, 4U);
}

TEST(SettingsText, ValuesThatWouldHarmTheServerAreRefused) {
  for (const char* const text :
       {R"({"poll_ms":0})", R"({"save_s":0})", R"({"capacity":0})", R"({"capacity":1000001})",
        R"({"save_s":4294968})", R"({"poll_ms":-1})", R"({"poll_ms":"20"})", R"({"types":[4]})",
        R"({"types":16})", R"({"types":"0"})", "[]", "nonsense", ""}) {
    std::string problem;
    EXPECT_FALSE(TamLogCtl::ParseSettings(text, problem)) << text;
    EXPECT_NE(problem, "") << text;
  }
}

TEST(SettingsText, UnknownSettingsAreRefused) {
  std::string problem;
  EXPECT_FALSE(TamLogCtl::ParseSettings(R"({"capacity":5,"poll":20})", problem));
  EXPECT_EQ(problem, "there is no setting 'poll'; there are capacity, poll_ms, save_s and types");
  EXPECT_TRUE(TamLogCtl::ParseSettings(TamLogCtl::SettingsAsJson({1, 2, 3, 4}, 1), problem)) << problem;
}

TEST(SettingsText, CapacityInEffectIsShownWithTheRequestedOne) {
  const SettingsBody settings{200, 1000, 15, 300};
  EXPECT_NE(TamLogCtl::SettingsAsText(settings, 100).find("200 requested, 100 in effect"), std::string::npos);
  EXPECT_NE(TamLogCtl::SettingsAsText(settings, std::nullopt).find("unknown in effect"), std::string::npos);
  EXPECT_EQ(TamLogCtl::CapacityText(200, 100), "capacity 200 requested, 100 in effect");
  EXPECT_EQ(TamLogCtl::TypesText(0), "none");
  EXPECT_EQ(TamLogCtl::TypesText(13), "0,2,3");
}

}  // namespace
