#pragma once

// Globs: patterns in which '*' stands for any letters, also for none.

#include <cstddef>
#include <string_view>

namespace TamLogCtl {

// Returns whether `name` matches `glob`. `same(of the glob, of the name)` compares two letters. Takes at most
// the product of both lengths.
template <typename Same>
bool MatchesGlob(std::string_view name, std::string_view glob, Same same) {
  std::size_t at = 0;
  std::size_t in = 0;
  std::size_t star = std::string_view::npos;
  std::size_t resume = 0;
  while (in < name.size()) {
    if (at < glob.size() && glob[at] == '*') {
      star = at++;
      resume = in;
    } else if (at < glob.size() && same(glob[at], name[in])) {
      ++at;
      ++in;
    } else if (star != std::string_view::npos) {
      at = star + 1;
      in = ++resume;
    } else {
      return false;
    }
  }
  return glob.find_first_not_of('*', at) == std::string_view::npos;
}

}  // namespace TamLogCtl
