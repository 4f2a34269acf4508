#include "tamlogctl/select/nothing_found.h"

#include <algorithm>
#include <cstddef>

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/suggestion.h"
#include "tamlogctl/select/message_selection.h"
#include "tamlogctl/select/source_names.h"

namespace TamLogCtl {

namespace {

std::string ListOf(const std::vector<std::string>& names) {
  constexpr std::size_t kMost = 20;
  std::string list;
  for (std::size_t i = 0; i < std::min(names.size(), kMost); ++i) list += (i == 0 ? "" : ", ") + names[i];
  if (names.size() > kMost) list += " and " + std::to_string(names.size() - kMost) + " more";
  return list;
}

}  // namespace

void SuggestSources(const SelectionOptions& options, const std::vector<std::string>& files) {
  if (options.sources.empty()) return;
  const std::vector<std::string> names = SourceNames(files);
  if (names.empty()) return;
  for (const std::string& text : options.sources) {
    const auto term = ParseSourceTerm(text);
    if (!term) continue;
    const auto matches = [&term](const std::string& name) { return MatchesName(name, term->name); };
    if (std::any_of(names.begin(), names.end(), matches)) continue;
    if (std::find(names.begin(), names.end(), text) != names.end()) {
      std::string line = "-s '" + text + "': no source is called '" + term->name;
      line += "'; for the source of this name write '" + text + "*'";
      Say(line);
      continue;
    }
    const std::string nearest = NearestWord(term->name, names);
    Say("-s '" + text + "': no source has this name; " +
        (nearest.empty() ? "" : "did you mean '" + nearest + "'? ") + "sources are " + ListOf(names));
  }
}

}  // namespace TamLogCtl
