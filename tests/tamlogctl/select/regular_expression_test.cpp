#include "tamlogctl/select/regular_expression.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
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
std::string Found(const std::string& pattern, const std::string& text) {
  std::string problem;
  auto expression = RegularExpression::Compile(pattern, false, problem);
  EXPECT_TRUE(expression) << pattern << ": " << problem;
  TamLogCtl::MatchEnds ends(text.size(), 0);
  if (expression) expression->FindAll(text, ends);
  const auto first = std::find_if(ends.begin(), ends.end(), [](std::size_t end) { return end > 0; });
  if (first == ends.end()) return "-";
  const auto at = static_cast<std::size_t>(first - ends.begin());
  return text.substr(at, *first - at);
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
      {"\\<out\\>", "timed out.", true},
      {"\\<out\\>", "outer", false},
      {"\\<out", "timeout", false},
      {"out\\>", "timeout", true},
      {"[\\<]", "<", true},
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
  EXPECT_EQ(Found("^b", "ab"), "-");
  EXPECT_EQ(Found("a$", "aba"), "a");
  EXPECT_EQ(Found("x*", "abc"), "-");
}

TEST(RegularExpression, FindsTheLongestMatchOfEveryPosition) {
  const auto found = [](const std::string& pattern, const std::string& text) {
    std::string problem;
    TamLogCtl::MatchEnds ends(text.size(), 0);
    RegularExpression::Compile(pattern, false, problem)->FindAll(text, ends);
    return ends;
  };
  using Ends = TamLogCtl::MatchEnds;
  EXPECT_EQ(found("\\d+", "a1b22"), (Ends{0, 2, 0, 5, 5}));
  EXPECT_EQ(found("^a+", "aaa"), (Ends{3, 0, 0}));
  EXPECT_EQ(found("\\ba|a$", "aaa a"), (Ends{1, 0, 0, 0, 5}));
  EXPECT_EQ(found("a\\B", "aaa"), (Ends{1, 2, 0}));
  EXPECT_EQ(found("(a*)*b?", "aab"), (Ends{3, 3, 3}));
  EXPECT_EQ(found("", "aa"), (Ends{0, 0}));
}

// Counts what a search does, not how long it takes. Each instruction is visited at most once a byte, once
// forwards and once backwards.
TEST(RegularExpression, FindingAllMatchesTakesStepsInProportionToTheText) {
  for (const char* const pattern : {"(.?){500}zz", "(.?){500}zz|a", "a|.*zz", "(a|aa)+$|a", "(a*)*b|a"}) {
    std::uint64_t before = 0;
    for (const std::size_t length : {250U, 500U, 1000U, 2000U}) {
      std::string problem;
      auto expression = RegularExpression::Compile(pattern, false, problem);
      ASSERT_TRUE(expression) << problem;
      const std::string text(length, 'a');
      TamLogCtl::MatchEnds ends(length, 0);
      expression->FindAll(text, ends);
      EXPECT_GT(expression->Steps(), 0U);
      EXPECT_LE(expression->Steps(), 2 * 2000 * (length + 2)) << pattern;
      if (before > 0) {
        EXPECT_LE(expression->Steps(), 2 * before + 20000) << pattern << ", " << length;
      }
      before = expression->Steps();
    }
  }
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
    TamLogCtl::MatchEnds ends(text.size(), 0);
    expression->FindAll(text, ends);
    EXPECT_EQ(ends, TamLogCtl::MatchEnds(text.size(), 0)) << pattern;
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

// The ends agree with the answers of `Matches` for each part of the text.
TEST(RegularExpression, EveryEndAgreesWithMatchesOnRandomPatterns) {
  std::mt19937 random(17);
  const std::vector<std::string> pieces{"a",  "b",  ".",  "[ab]",          "(?:ab|c)",
                                        "a*", "b+", "c?", "(?:a|bc){1,2}", "|"};
  for (int round = 0; round < 500; ++round) {
    std::string pattern;
    for (std::size_t i = 1 + random() % 4; i > 0; --i) pattern += pieces[random() % pieces.size()];
    std::string text;
    for (std::size_t k = random() % 8; k > 0; --k) text += "abc"[random() % 3];
    std::string problem;
    TamLogCtl::MatchEnds ends(text.size(), 0);
    RegularExpression::Compile(pattern, false, problem)->FindAll(text, ends);
    for (std::size_t at = 0; at < text.size(); ++at) {
      std::size_t longest = 0;
      for (std::size_t end = at + 1; end <= text.size(); ++end)
        if (Matches("^(?:" + pattern + ")$", text.substr(at, end - at))) longest = end;
      EXPECT_EQ(ends[at], longest) << pattern << " at " << at << " of '" << text << "'";
    }
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
    TamLogCtl::MatchEnds ends(text.size(), 0);
    pattern->FindAll(text, ends);
    for (std::size_t at = 0; at < text.size(); ++at) {
      const bool begins = !needle.empty() && text.compare(at, needle.size(), needle) == 0;
      EXPECT_EQ(ends[at], begins ? at + needle.size() : 0U) << needle << " in " << text;
    }
  }
}

}  // namespace
