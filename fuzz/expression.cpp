// Fuzzes regular expressions. The first line of the input is the pattern, the rest the text. All matches are
// found in steps in proportion to the text, and they agree with what `Matches` says about the same parts of
// it.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/input.h"
#include "tamlogctl/select/regular_expression.h"

namespace {

using TamLogCtl::MatchEnds;
using TamLogCtl::RegularExpression;

constexpr std::size_t kMostInstructions = 5000;
constexpr std::size_t kMostCompared = 12;  // bytes of a text whose parts are all compared

// Without ^, $, \b and \B a match does not depend on what surrounds it.
void CompareParts(const std::string& pattern, std::string_view text, const MatchEnds& ends) {
  if (text.size() > kMostCompared || pattern.find_first_of("^$\\") != std::string::npos) return;
  std::string problem;
  auto whole = RegularExpression::Compile("^(?:" + pattern + ")$", false, problem);
  if (!whole) return;  // too large or too deep by now
  for (std::size_t at = 0; at < text.size(); ++at) {
    std::size_t longest = 0;
    for (std::size_t end = at + 1; end <= text.size(); ++end) {
      if (whole->Matches(text.substr(at, end - at))) longest = end;
    }
    Fuzz::Require(ends[at] == longest);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string pattern(input.substr(0, input.find('\n')));
  const std::string_view text = input.substr(std::min(size, pattern.size() + 1)).substr(0, 512);
  for (const bool foldCase : {false, true}) {
    std::string problem;
    auto expression = RegularExpression::Compile(pattern, foldCase, problem);
    Fuzz::Require(expression.has_value() == problem.empty());
    if (!expression) return 0;
    const bool matches = expression->Matches(text);
    MatchEnds ends(text.size(), 0);
    expression->FindAll(text, ends);
    Fuzz::Require(expression->Steps() <= 3 * (kMostInstructions + 1) * (text.size() + 2));
    for (std::size_t at = 0; at < ends.size(); ++at) {
      Fuzz::Require(ends[at] == 0 || (matches && ends[at] > at && ends[at] <= text.size()));
    }
    if (!foldCase) CompareParts(pattern, text, ends);
  }
  return 0;
}
