#pragma once

// What a text is searched for: plain text, or a regular expression. An expression without any special
// character is searched for as plain text, which is faster.
//
// An object serves one thread at a time.

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "tamlogctl/select/regular_expression.h"

namespace TamLogCtl {

class TextPattern {
 public:
  // `fixed`: plain text. Case (of A to Z) is ignored when `ignoreCase` is set or when the pattern has no
  // upper-case letter. Nothing, and one phrase in `problem`, for a pattern that is no regular expression.
  static std::optional<TextPattern> Make(const std::string& pattern, bool fixed, bool ignoreCase,
                                         std::string& problem);

  bool Matches(std::string_view text);

  // The first match that is not empty and begins at `from` or later.
  std::optional<TextExtent> Find(std::string_view text, std::size_t from);

 private:
  TextPattern() = default;
  void SetLiteral(const std::string& text);
  std::size_t Search(std::string_view text, std::size_t from) const;
  bool IsAt(const char* text) const;

  std::optional<RegularExpression> expression;
  std::string literal;  // lower case when case is ignored
  bool foldCase = false;
  std::array<unsigned char, 256> skip{};  // how far a last byte that does not fit lets the search move on
};

// As the server and the filters compare: A to Z only, because the encoding of other bytes is not known.
constexpr char ToLowerAscii(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace TamLogCtl
