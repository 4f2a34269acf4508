#pragma once

// Finds what a misspelt word was probably meant to be.

#include <string>
#include <vector>

namespace TamLogCtl {

// Returns the word of `words` that needs the fewest changes to become `typed` (a letter more, less, other, or
// two exchanged), or that `typed` begins, in either case; empty when none is near.
std::string NearestWord(const std::string& typed, const std::vector<std::string>& words);

}  // namespace TamLogCtl
