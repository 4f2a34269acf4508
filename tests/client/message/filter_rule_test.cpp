#include "client/message/filter_rule.h"

#include <gtest/gtest.h>

namespace {

using TamLogClient::FilterEntry;
using TamLogClient::FilterMatches;
using TamLogClient::FilterReason;
using TamLogClient::JudgeMessage;
using TamLogClient::NothingPasses;
using Filters = std::vector<FilterEntry>;

constexpr std::uint32_t kAll = 15;

TEST(FilterRule, ShorterOfTheTwoIsTheBeginningOfTheLongerWithoutCase) {
  EXPECT_TRUE(FilterMatches("Camera", "camera2"));
  EXPECT_TRUE(FilterMatches("Camera", "CAM"));
  EXPECT_TRUE(FilterMatches("Camera", "Camera"));
  EXPECT_FALSE(FilterMatches("Camera", "My Camera"));
  EXPECT_FALSE(FilterMatches("Camera", "Canera"));
}

TEST(FilterRule, OnlyLettersOfAsciiHaveTwoCases) {
  EXPECT_FALSE(FilterMatches("\xC4rger", "\xE4rger"));
  EXPECT_FALSE(FilterMatches("[", "{"));
  EXPECT_FALSE(FilterMatches("@", "`"));
}

TEST(FilterRule, EmptyFilterAndEmptySourceMatchEverything) {
  EXPECT_TRUE(FilterMatches("", "Camera"));
  EXPECT_TRUE(FilterMatches("Camera", ""));
  EXPECT_TRUE(FilterMatches("", ""));
}

TEST(FilterRule, TypeDecidesBeforeAnyFilter) {
  const Filters filters{{"Camera", true}};
  EXPECT_EQ(JudgeMessage(filters, 0b1011, "Camera", 2).reason, FilterReason::TypeOff);
  EXPECT_FALSE(JudgeMessage(filters, 0b1011, "Camera", 2).kept);
  EXPECT_EQ(JudgeMessage(filters, 0xFFFFFFFFU, "Camera", 4).reason, FilterReason::NoSuchType);
  EXPECT_EQ(JudgeMessage(filters, 0xFFFFFFFFU, "Camera", 0xFFFFFFFFU).reason, FilterReason::NoSuchType);
}

TEST(FilterRule, ExcludesAreNotLookedAtWhileThereAreIncludes) {
  const Filters filters{{"Camera", true}, {"Camera", false}, {"Laser", false}};
  const auto camera = JudgeMessage(filters, kAll, "Camera", 0);
  EXPECT_TRUE(camera.kept);
  EXPECT_EQ(camera.reason, FilterReason::Included);
  EXPECT_EQ(camera.index, 0U);
  EXPECT_EQ(JudgeMessage(filters, kAll, "Stage", 0).reason, FilterReason::NotIncluded);
  EXPECT_EQ(JudgeMessage(filters, kAll, "Laser", 0).reason, FilterReason::NotIncluded);
}

TEST(FilterRule, FirstExcludeThatMatchesDecides) {
  const Filters filters{{"Laser", false}, {"Cam", false}, {"Camera", false}};
  const auto camera = JudgeMessage(filters, kAll, "camera", 0);
  EXPECT_FALSE(camera.kept);
  EXPECT_EQ(camera.reason, FilterReason::Excluded);
  EXPECT_EQ(camera.index, 1U);
  EXPECT_EQ(JudgeMessage(filters, kAll, "Stage", 0).reason, FilterReason::NothingAgainst);
  EXPECT_TRUE(JudgeMessage({}, kAll, "Stage", 3).kept);
}

TEST(FilterRule, NothingPassesAnEmptyExcludeOrNoTypes) {
  EXPECT_TRUE(NothingPasses({{"", false}}, kAll));
  EXPECT_TRUE(NothingPasses({}, 0xFFFFFFF0U));
  EXPECT_FALSE(NothingPasses({{"", true}, {"", false}}, kAll));
  EXPECT_FALSE(NothingPasses({{"a", false}}, 1));
}

}  // namespace
