#pragma once

#include <string>
#include <vector>

#include "tamlogctl/select/selection_options.h"

namespace TamLogCtl {

// Reports on stderr, after a search in which nothing matched, each name of --source that no source has, and
// the sources that there are: in these files, or in the running server's log when there are none.
void SuggestSources(const SelectionOptions& options, const std::vector<std::string>& files);

}  // namespace TamLogCtl
