#include "tamlogctl/select/regular_expression.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "tamlogctl/select/text_pattern.h"

namespace {

using TamLogCtl::RegularExpression;
using TamLogCtl::TextPattern;

bool Matches(const std::string& pattern, const std::string& text, bool foldCase = false) {
  std::string problem;
  auto expression = RegularExpression::Compile(pattern, foldCase, problem);
  EXPECT_TRUE(expression) << pattern << ": " << problem;
  return expression && expression->Matches(text);
}

std::string ProblemOf(const std::string& pattern) {
  std::string problem;
  return RegularExpression::Compile(pattern, false, problem) ? "" : problem;
}

// Returns the match, or a dash.
std::string Found(const std::string& pattern, const std::string& text, std::size_t from = 0) {
  std::string problem;
  auto expression = RegularExpression::Compile(pattern, false, problem);
  EXPECT_TRUE(expression) << pattern << ": " << problem;
  const auto extent = expression ? expression->Find(text, from) : std::nullopt;
  return extent ? text.substr(extent->first, extent->length) : "-";
}

TEST(RegularExpression, EveryElementMeansWhatTheManualSays) {
  struct Case {
    const char* pattern;
    const char* text;
    bool matches;
  };
  const Case cases[] = {
      {"timed? out", "it timed out", true},
      {"timed? out", "it time out", true},
      {"timed? out", "it tim out", false},
      {"a.c", "abc", true},
      {"a.c", "ac", false},
      {"^abc$", "abc", true},
      {"^abc$", "abcd", false},
      {"^abc", "xabc", false},
      {"abc$", "xabc", true},
      {"^$", "", true},
      {"^$", "x", false},
      {"a|bc|d", "xbcx", true},
      {"a|bc|d", "xbx", false},
      {"(ab)+c", "ababc", true},
      {"(?:ab){2}c", "abc", false},
      {"(?:ab){2}c", "xababc", true},
      {"a{2,3}$", "baaa", true},
      {"^a{2,3}$", "aaaa", false},
      {"^a{2,}$", "aaaaaa", true},
      {"^a{0}b", "b", true},
      {"x{", "x{", true},
      {"x{a}", "x{a}", true},
      {"[a-c]+[^a-c]", "abcd", true},
      {"[]]", "]", true},
      {"[^]]", "]", false},
      {"[a\\]]", "]", true},
      {"[a-]", "-", true},
      {"[\\d.]+mm", "12.5mm", true},
      {"[[:digit:]]{3}", "a123", true},
      {"[[:upper:]]", "abc", false},
      {"\\d+\\s\\w+", "12 mm", true},
      {"\\D", "123", false},
      {"\\W\\S", "a b", true},
      {"\\bout\\b", "timed out.", true},
      {"\\bout\\b", "outer", false},
      {"\\Buter", "outer", true},
      {"a\\.b", "axb", false},
      {"\\x41\\t", "A\t", true},
      {"a*?b", "aab", true},
      {"", "anything", true},
      {"()", "", true},
      {"(a*)*b", "aaab", true},
      {"(a*)*b", "aaac", false},
      {"a||b", "zzz", true},
      {"\xC3\xA4+x", "\xC3\xA4\xC3\xA4x", true},
      {"^\xC3\xA4?x", "x", true},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(Matches(each.pattern, each.text), each.matches) << each.pattern << " in '" << each.text << "'";
  }
}

TEST(RegularExpression, CaseIsFoldedWhereItIsAsked) {
  EXPECT_TRUE(Matches("camera [a-c]", "CAMERA B", true));
  EXPECT_FALSE(Matches("camera", "CAMERA"));
  EXPECT_TRUE(Matches("[^a]", "A"));
  EXPECT_FALSE(Matches("[^a]", "A", true));
  EXPECT_TRUE(Matches("[[:upper:]]", "a", true));
}

TEST(RegularExpression, WhatIsNoneIsRefusedWithAReason) {
  for (const char* const pattern : {"(",
                                    ")",
                                    "a)",
                                    "(a",
                                    "[",
                                    "[a",
                                    "[z-a]",
                                    "*a",
                                    "a**",
                                    "a+*",
                                    "\\",
                                    "(?=a)",
                                    "(?!a)",
                                    "(?<n>a)",
                                    "\\1",
                                    "\\q",
                                    "\\x4",
                                    "\\xg0",
                                    "[[:nope:]]",
                                    "[\xC3\xA4]",
                                    "a{3,2}",
                                    "a{1001}",
                                    "(a{1000}){1000}",
                                    "a|*",
                                    "[\\"}) {
    EXPECT_NE(ProblemOf(pattern), "") << pattern;
  }
  EXPECT_NE(ProblemOf(std::string(100000, '(')), "");
  EXPECT_NE(ProblemOf(std::string(100000, 'a')), "");
  EXPECT_EQ(ProblemOf("(" + std::string(50, '(') + "a" + std::string(50, ')') + ")"), "");
}

TEST(RegularExpression, FindsTheLeftmostLongestThatIsNotEmpty) {
  EXPECT_EQ(Found("a|ab|abc", "xabcd"), "abc");
  EXPECT_EQ(Found("b*", "aabb"), "bb");
  EXPECT_EQ(Found("\\d+", "a1b22", 2), "22");
  EXPECT_EQ(Found("^a", "aaa", 1), "-");
  EXPECT_EQ(Found("x*", "abc"), "-");
}

TEST(RegularExpression, NastyPatternsTakeNoTime) {
  const std::string text(256, 'a');
  const auto begin = std::chrono::steady_clock::now();
  for (const char* const pattern :
       {"(a*)*b", "(a+)+$b", "(a|a)*b", "(a|aa)+$b", "(.*a){12}b", "(a?){64}a{64}b", "(x+x+)+y", "(.*)*\\bq",
        "(((((a*)*)*)*)*)*b", "[a-z]{1,200}b{3}", "(a|b|c|d|e|f)*(a|b){15}z", "a(.|.)*(.|.)*(.|.)*b"}) {
    EXPECT_FALSE(Matches(pattern, text)) << pattern;
    std::string problem;
    auto expression = RegularExpression::Compile(pattern, true, problem);
    ASSERT_TRUE(expression);
    EXPECT_FALSE(expression->Find(text, 0)) << pattern;
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST(RegularExpression, ManyStatesDoNotFillTheMemory) {
  // "The 14th from the end is an a" has 2^14 states; the texts visit most of them.
  std::string problem;
  auto expression = RegularExpression::Compile("a[ab]{13}$", false, problem);
  ASSERT_TRUE(expression);
  std::mt19937 random(3);
  for (int i = 0; i < 300; ++i) {
    std::string text;
    for (int k = 0; k < 100; ++k) text += random() % 2 == 0 ? 'a' : 'b';
    EXPECT_EQ(expression->Matches(text), text[text.size() - 14] == 'a');
  }
}

// The standard library's engine finds the same for patterns that both accept.
TEST(RegularExpression, AgreesWithTheStandardLibraryOnRandomPatterns) {
  std::mt19937 random(11);
  const auto draw = [&random](std::size_t bound) { return random() % bound; };
  const std::vector<std::string> atoms{"a",   "b", "c", ".",   "[ab]",    "[^b]",
                                       "\\w", "^", "$", "\\b", "(?:ab|c)"};
  const std::vector<std::string> quantifiers{"", "", "", "*", "+", "?", "{2}", "{1,2}"};
  int compared = 0;
  for (int round = 0; round < 2000; ++round) {
    std::string pattern;
    for (std::size_t i = 1 + draw(4); i > 0; --i) {
      const std::string& atom = atoms[draw(atoms.size())];
      pattern += atom;
      if (atom != "^" && atom != "$" && atom != "\\b") {
        pattern += quantifiers[draw(quantifiers.size())];
      }
      if (i > 1 && draw(5) == 0) pattern += "|";
    }
    const std::regex peer(pattern, std::regex::ECMAScript);
    for (int i = 0; i < 10; ++i) {
      std::string text;
      for (std::size_t k = draw(7); k > 0; --k) text += "abc "[draw(4)];
      EXPECT_EQ(Matches(pattern, text), std::regex_search(text, peer)) << pattern << " in '" << text << "'";
      ++compared;
    }
    if (HasFailure()) return;
  }
  EXPECT_EQ(compared, 20000);
}

TEST(TextPattern, PlainTextIsFoundWithAndWithoutCase) {
  std::string problem;
  auto lower = TextPattern::Make("out", false, false, problem);
  auto upper = TextPattern::Make("Out", false, false, problem);
  auto ignoring = TextPattern::Make("Out", false, true, problem);
  ASSERT_TRUE(lower && upper && ignoring);
  EXPECT_TRUE(lower->Matches("timed OUT"));  // all lower case ignores case
  EXPECT_FALSE(upper->Matches("timed out"));
  EXPECT_TRUE(ignoring->Matches("timed out"));
  auto expression = TextPattern::Make("time.?out", false, false, problem);
  ASSERT_TRUE(expression);
  EXPECT_TRUE(expression->Matches("Time-Out"));
  auto escaped = TextPattern::Make("\\D\\S", false, false, problem);
  ASSERT_TRUE(escaped);  // the letters of escapes are none of the text
  EXPECT_TRUE(escaped->Matches("xY"));
  auto fixed = TextPattern::Make("a.c*", true, false, problem);
  ASSERT_TRUE(fixed);
  EXPECT_TRUE(fixed->Matches("xxa.c*"));
  EXPECT_FALSE(fixed->Matches("abc"));
  EXPECT_FALSE(TextPattern::Make("(", false, false, problem));
  EXPECT_EQ(problem, "a '(' without ')'");
}

TEST(TextPattern, PlainSearchAgreesWithTheStandardLibrary) {
  std::mt19937 random(5);
  const auto word = [&random](std::size_t most) {
    std::string text;
    for (std::size_t k = random() % (most + 1); k > 0; --k) text += "ab"[random() % 2];
    return text;
  };
  for (int i = 0; i < 20000; ++i) {
    const std::string needle = word(6);
    const std::string text = word(30);
    std::string problem;
    auto pattern = TextPattern::Make(needle, true, false, problem);
    ASSERT_TRUE(pattern);
    EXPECT_EQ(pattern->Matches(text), text.find(needle) != std::string::npos) << needle << " in " << text;
    const auto found = pattern->Find(text, 0);
    if (!needle.empty()) {
      EXPECT_EQ(found ? found->first : std::string::npos, text.find(needle));
    }
  }
}

}  // namespace
