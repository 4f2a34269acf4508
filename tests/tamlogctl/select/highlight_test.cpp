#include "tamlogctl/select/highlight.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using TamLogCtl::TextPattern;

std::vector<TextPattern> PatternsOf(const std::vector<std::string>& texts) {
  std::vector<TextPattern> patterns;
  for (const std::string& text : texts) {
    std::string problem;
    auto pattern = TextPattern::Make(text, false, false, problem);
    EXPECT_TRUE(pattern) << problem;
    if (pattern) patterns.push_back(std::move(*pattern));
  }
  return patterns;
}

// Returns the lines with < and > around what is marked.
std::string Marked(const std::string& lines, const std::vector<std::string>& texts) {
  auto patterns = PatternsOf(texts);
  std::string out;
  TamLogCtl::AppendHighlighted(lines, patterns, out);
  for (const auto& [sequence, sign] : {std::pair("\x1b[1;31m", "<"), std::pair("\x1b[0m", ">")}) {
    const std::string wanted = sequence;
    for (std::size_t at = out.find(wanted); at != std::string::npos; at = out.find(wanted))
      out.replace(at, wanted.size(), sign);
  }
  return out;
}

TEST(Highlight, MarksEveryMatchOfEveryPattern) {
  EXPECT_EQ(Marked("one two one\n", {"one"}), "<one> two <one>\n");
  EXPECT_EQ(Marked("one two\n", {"one", "t.o"}), "<one> <two>\n");
  EXPECT_EQ(Marked("timed out\n", {"time", "timed"}), "<timed> out\n");
  EXPECT_EQ(Marked("aaa\n", {"a"}), "<a><a><a>\n");
  EXPECT_EQ(Marked("abc\n", {"x*"}), "abc\n");
}

TEST(Highlight, RestoresTheColorAfterAMatch) {
  EXPECT_EQ(Marked("\x1b[36mone two\x1b[0m\n", {"one"}), "\x1b[36m<one>\x1b[36m two>\n");
}

TEST(Highlight, MarksWholeCharacters) {
  EXPECT_EQ(Marked("gr\xC3\xBC\xC3\x9F\n", {"gr."}), "<gr\xC3\xBC>\xC3\x9F\n");
  EXPECT_EQ(Marked("\xC3\xBCx\n", {"[^a]x"}), "<\xC3\xBCx>\n");
}

// A match that is found again and again after each shorter one would cost the square of the length.
TEST(Highlight, TakesStepsInProportionToTheLine) {
  for (const char* const text : {"(.?){500}zz", "(.?){500}zz|a", "a|.*zz"}) {
    std::uint64_t before = 0;
    for (const std::size_t length : {500U, 1000U, 2000U}) {
      auto patterns = PatternsOf({text});
      std::string out;
      TamLogCtl::AppendHighlighted(std::string(length, 'a'), patterns, out);
      const std::uint64_t steps = patterns.front().Steps();
      EXPECT_GT(steps, length);
      if (before > 0) {
        EXPECT_LE(steps, 2 * before + 20000) << text << ", " << length;
      }
      before = steps;
    }
  }
}

}  // namespace
