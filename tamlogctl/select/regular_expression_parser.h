#pragma once

// Compiles the text of a regular expression to the program that RegularExpression runs.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tamlogctl/select/byte_set.h"
#include "tamlogctl/select/regular_expression.h"

namespace TamLogCtl {

struct ParsedExpression {
  std::vector<RegularExpression::Instruction> program;
  std::vector<ByteSet> sets;
};

// Returns nothing, and one phrase in `problem`, if the pattern is malformed.
std::optional<ParsedExpression> ParseExpression(std::string_view pattern, bool foldCase,
                                                std::string& problem);

}  // namespace TamLogCtl
