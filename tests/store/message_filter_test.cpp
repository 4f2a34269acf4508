#include "store/message_filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "store/source_filters.h"
#include "tests/store/messages.h"
#include "util/helpers.h"

namespace StoreTest {
namespace {

class MessageFilter : public testing::Test {
 protected:
  MessageFilter() {
    std::fill(std::begin(configuration.typeFilter), std::end(configuration.typeFilter), true);
  }

  bool KeepsFrom(const std::string& source) const {
    return IsMessageKept(configuration, From(source, Message("text")));
  }
  bool KeepsType(std::uint32_t type) const {
    return IsMessageKept(configuration, OfType(type, Message("text")));
  }

  ServerConfiguration configuration;
};

TEST_F(MessageFilter, KeepsEverythingWithoutFilters) {
  EXPECT_TRUE(KeepsFrom("anything"));
  EXPECT_TRUE(KeepsFrom(""));
}

TEST_F(MessageFilter, DropsTheTypesThatAreSwitchedOff) {
  configuration.typeFilter[1] = false;
  configuration.typeFilter[3] = false;
  EXPECT_TRUE(KeepsType(0));
  EXPECT_FALSE(KeepsType(1));
  EXPECT_TRUE(KeepsType(2));
  EXPECT_FALSE(KeepsType(3));
}

TEST_F(MessageFilter, DropsTypesThatHaveNoSwitch) {
  EXPECT_FALSE(KeepsType(4));
  EXPECT_FALSE(KeepsType(0xFFFFFFFFU));
}

TEST_F(MessageFilter, WithIncludeFiltersKeepsOnlyWhatMatchesOne) {
  configuration.includeFilters = {"Driver", "Camera"};
  EXPECT_TRUE(KeepsFrom("Driver"));
  EXPECT_TRUE(KeepsFrom("Camera"));
  EXPECT_FALSE(KeepsFrom("Scanner"));
}

TEST_F(MessageFilter, WithExcludeFiltersDropsWhatMatchesOne) {
  configuration.excludeFilters = {"42", "Camera"};
  EXPECT_FALSE(KeepsFrom("42"));
  EXPECT_FALSE(KeepsFrom("Camera"));
  EXPECT_TRUE(KeepsFrom("Scanner"));
}

TEST_F(MessageFilter, DoesNotConsultExcludeFiltersWhileThereAreIncludeFilters) {
  configuration.includeFilters = {"Camera"};
  configuration.excludeFilters = {"Camera"};
  EXPECT_TRUE(KeepsFrom("Camera"));
}

TEST_F(MessageFilter, TheTypeSwitchComesBeforeAnIncludeFilter) {
  configuration.includeFilters = {"source"};
  configuration.typeFilter[2] = false;
  EXPECT_FALSE(KeepsType(2));
}

TEST_F(MessageFilter, MatchesBeginningsInBothDirectionsAndInAnyLetterCase) {
  configuration.includeFilters = {"Camera"};
  EXPECT_TRUE(KeepsFrom("cam"));
  EXPECT_TRUE(KeepsFrom("CAMERA2"));
  EXPECT_FALSE(KeepsFrom("MyCamera"));
  EXPECT_FALSE(KeepsFrom("Camp"));
}

TEST_F(MessageFilter, AnEmptySourceOrFilterMatchesEverything) {
  configuration.includeFilters = {"Camera"};
  EXPECT_TRUE(KeepsFrom(""));
  configuration.includeFilters = {""};
  EXPECT_TRUE(KeepsFrom("Scanner"));
  configuration.includeFilters.clear();
  configuration.excludeFilters = {""};
  EXPECT_FALSE(KeepsFrom("Scanner"));
}

TEST_F(MessageFilter, ASourceWithoutAZeroEndsWithItsField) {
  LogMessageBody body = From(std::string(kTextSize, 's'), Message("text"));
  configuration.includeFilters = {std::string(kTextSize, 's')};
  EXPECT_TRUE(IsMessageKept(configuration, body));
  // The byte after the field is the text's first: if it were read, these two would differ.
  CopyText(body.text, "more");
  configuration.includeFilters = {std::string(kTextSize, 's') + "x"};
  EXPECT_TRUE(IsMessageKept(configuration, body));
  configuration.includeFilters = {std::string(kTextSize - 1, 's') + "x"};
  EXPECT_FALSE(IsMessageKept(configuration, body));
}

TEST_F(MessageFilter, NeverLooksAtTheText) {
  configuration.excludeFilters = {"secret"};
  EXPECT_TRUE(IsMessageKept(configuration, From("Camera", Message("secret"))));
}

// The prepared filters against the plain comparison, with all byte values.
TEST(SourceFilters, MatchWhatThePlainComparisonMatches) {
  std::mt19937 random(1);
  const auto below = [&random](unsigned limit) -> std::size_t { return random() % limit; };
  const std::string letters = "aAbB@Z[`z{\x80\xC4\xE4\xFF";
  const auto name = [&](std::size_t most) {
    std::string text(below(4) == 0 ? below(static_cast<unsigned>(most)) : below(12), 'a');
    for (char& byte : text) {
      if (below(4) == 0) byte = letters[below(static_cast<unsigned>(letters.size()))];
    }
    return text;
  };
  int matched = 0;
  constexpr int kLists = 2000;
  constexpr int kSources = 200;
  for (int list = 0; list < kLists; ++list) {
    SourceFilters filters;
    std::vector<std::string> plain;
    for (std::size_t i = below(6); i > 0; --i) {
      plain.push_back(name(400));
      filters.push_back(plain.back());
    }
    ASSERT_TRUE(std::equal(plain.begin(), plain.end(), filters.begin(), filters.end()));
    for (int i = 0; i < kSources; ++i) {
      char field[kTextSize];
      CopyText(field, name(300));
      if (below(8) == 0) field[kTextSize - 1] = 'A';
      const std::string source(std::begin(field), std::find(std::begin(field), std::end(field), '\0'));
      const bool expected = TamLogUtil::MatchesAnyPrefix(source, plain);
      ASSERT_EQ(filters.MatchAny(FoldedSource(field)), expected) << source;
      matched += expected ? 1 : 0;
    }
  }
  EXPECT_GT(matched, kLists * kSources / 10);
  EXPECT_LT(matched, kLists * kSources * 9 / 10);
}

}  // namespace
}  // namespace StoreTest
