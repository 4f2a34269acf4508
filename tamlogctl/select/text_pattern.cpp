#include "tamlogctl/select/text_pattern.h"

#include <algorithm>

namespace TamLogCtl {

namespace {

constexpr std::string_view kSpecial = "\\.[](){}*+?^$|";

// The letters of escapes (\D, \W, \S, \B) do not count.
bool HasUpperCase(std::string_view pattern, bool fixed) {
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (!fixed && pattern[i] == '\\') {
      ++i;
    } else if (pattern[i] >= 'A' && pattern[i] <= 'Z') {
      return true;
    }
  }
  return false;
}

}  // namespace

std::optional<TextPattern> TextPattern::Make(const std::string& pattern, bool fixed, bool ignoreCase,
                                             std::string& problem) {
  TextPattern made;
  made.foldCase = ignoreCase || !HasUpperCase(pattern, fixed);
  if (fixed || pattern.find_first_of(kSpecial) == std::string::npos) {
    made.SetLiteral(pattern);
    return made;
  }
  made.expression = RegularExpression::Compile(pattern, made.foldCase, problem);
  if (!made.expression) return std::nullopt;
  return made;
}

void TextPattern::SetLiteral(const std::string& text) {
  literal = text;
  if (foldCase) std::transform(literal.begin(), literal.end(), literal.begin(), ToLowerAscii);
  const std::size_t length = literal.size();
  constexpr std::size_t kMostSkip = 255;
  skip.fill(static_cast<unsigned char>(std::min(length, kMostSkip)));
  for (std::size_t i = 0; i + 1 < length; ++i) {
    const auto distance = static_cast<unsigned char>(std::min(length - 1 - i, kMostSkip));
    const auto byte = static_cast<unsigned char>(literal[i]);
    skip[byte] = distance;
    if (foldCase && byte >= 'a' && byte <= 'z') skip[byte ^ 0x20U] = distance;
  }
}

bool TextPattern::IsAt(const char* text) const {
  for (const char letter : literal) {
    if ((foldCase ? ToLowerAscii(*text) : *text) != letter) return false;
    ++text;
  }
  return true;
}

// Horspool's search: the byte at the last position decides how far to advance.
std::size_t TextPattern::Search(std::string_view text, std::size_t from) const {
  const std::size_t length = literal.size();
  if (length == 0) return from <= text.size() ? from : std::string_view::npos;
  for (std::size_t at = from; at + length <= text.size();) {
    if (IsAt(text.data() + at)) return at;
    at += skip[static_cast<unsigned char>(text[at + length - 1])];
  }
  return std::string_view::npos;
}

bool TextPattern::Matches(std::string_view text) {
  if (expression) return expression->Matches(text);
  return Search(text, 0) != std::string_view::npos;
}

void TextPattern::FindAll(std::string_view text, MatchEnds& ends) {
  if (expression) return expression->FindAll(text, ends);
  if (literal.empty()) return;
  for (std::size_t at = Search(text, 0); at != std::string_view::npos; at = Search(text, at + 1))
    ends[at] = std::max(ends[at], at + literal.size());
}

}  // namespace TamLogCtl
