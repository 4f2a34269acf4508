#pragma once

// A search pattern: plain text, or a regular expression. An expression without special characters is searched
// for as plain text, which is faster. One thread at a time may use an object.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tamlogctl/select/regular_expression.h"

namespace TamLogCtl {

class TextPattern {
 public:
  // Makes a pattern of plain text (`fixed`) or of a regular expression. The case of A to Z is ignored if
  // `ignoreCase` is set or if the pattern has no upper-case letter. Returns nothing, and one phrase in
  // `problem`, if the expression is malformed.
  static std::optional<TextPattern> Make(const std::string& pattern, bool fixed, bool ignoreCase,
                                         std::string& problem);

  bool Matches(std::string_view text);

  // Finds all matches that are not empty. Raises each element of `ends`, which is as long as the text, to the
  // end of the longest match that begins there.
  void FindAll(std::string_view text, MatchEnds& ends);

  // Returns the cost of all searches so far, for an expression: RegularExpression::Steps.
  std::uint64_t Steps() const { return expression ? expression->Steps() : 0; }

 private:
  TextPattern() = default;
  void SetLiteral(const std::string& text);
  std::size_t Search(std::string_view text, std::size_t from) const;
  bool IsAt(const char* text) const;

  std::optional<RegularExpression> expression;
  std::string literal;  // in lower case if case is ignored
  bool foldCase = false;
  std::array<unsigned char, 256> skip{};  // how far the search may advance, by the byte at the last position
};

// Folds A to Z only, like the server and its filters: the encoding of other bytes is unknown.
constexpr char ToLowerAscii(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace TamLogCtl
