#pragma once

// Marks what matches in lines that a terminal shows.

#include <string>
#include <string_view>
#include <vector>

#include "tamlogctl/select/text_pattern.h"

namespace TamLogCtl {

// Appends `lines` with every match of a pattern in bold red. Colours that are there already stay, and are not
// searched.
void AppendHighlighted(std::string_view lines, std::vector<TextPattern>& patterns, std::string& out);

}  // namespace TamLogCtl
