#pragma once

// Turns the text of a regular expression into the program that RegularExpression runs.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tamlogctl/select/regular_expression.h"

namespace TamLogCtl {

struct ParsedExpression {
  std::vector<RegularExpression::Instruction> program;
  std::vector<RegularExpression::ByteSet> sets;
};

// Nothing, and one phrase in `problem`, for a pattern that is none.
std::optional<ParsedExpression> ParseExpression(std::string_view pattern, bool foldCase,
                                                std::string& problem);

// Letters, digits and the underscore, as \w and \b have it.
bool IsWordByte(unsigned char byte);

}  // namespace TamLogCtl
