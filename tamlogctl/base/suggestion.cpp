#include "tamlogctl/base/suggestion.h"

#include <algorithm>
#include <cstddef>

#include "client/message/utf8.h"

namespace TamLogCtl {

namespace {

// Counts letters that are missing, added, replaced or exchanged with their neighbour.
std::size_t Distance(const std::string& left, const std::string& right) {
  std::vector<std::vector<std::size_t>> rows(left.size() + 1, std::vector<std::size_t>(right.size() + 1));
  for (std::size_t i = 0; i <= left.size(); ++i) {
    for (std::size_t k = 0; k <= right.size(); ++k) {
      if (i == 0 || k == 0) {
        rows[i][k] = i + k;
        continue;
      }
      const bool equal = left[i - 1] == right[k - 1];
      rows[i][k] = std::min({rows[i - 1][k] + 1, rows[i][k - 1] + 1, rows[i - 1][k - 1] + (equal ? 0 : 1)});
      const bool exchanged = i > 1 && k > 1 && left[i - 1] == right[k - 2] && left[i - 2] == right[k - 1];
      if (exchanged) rows[i][k] = std::min(rows[i][k], rows[i - 2][k - 2] + 1);
    }
  }
  return rows[left.size()][right.size()];
}

}  // namespace

std::string NearestWord(const std::string& typed, const std::vector<std::string>& words) {
  constexpr std::size_t kLongest = 40;  // of a word that is worth comparing
  if (typed.empty() || typed.size() > kLongest) return "";
  const auto inLowerCase = [](std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), TamLogClient::LowerCase);
    return text;
  };
  const std::string wanted = inLowerCase(typed);
  const std::size_t letters = typed.size() - std::min(typed.find_first_not_of('-'), typed.size());
  constexpr std::size_t kMostChanges = 3;
  std::size_t nearest = std::min(letters / 3, kMostChanges) + 1;
  std::string found;
  for (const std::string& word : words) {
    const std::string lower = inLowerCase(word.substr(0, kLongest));
    const bool begins = letters >= 2 && lower.starts_with(wanted);
    const std::size_t distance = begins ? 0 : Distance(wanted, lower);
    if (distance >= nearest) continue;
    nearest = distance;
    found = word;
  }
  return found;
}

}  // namespace TamLogCtl
