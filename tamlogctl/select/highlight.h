#pragma once

// Highlights matches in lines for a terminal.

#include <string>
#include <string_view>
#include <vector>

#include "tamlogctl/select/text_pattern.h"

namespace TamLogCtl {

// Appends `lines` to `out`, with every match of a pattern in bold red. Colours in `lines` are kept; their
// escape sequences are not searched.
void AppendHighlighted(std::string_view lines, std::vector<TextPattern>& patterns, std::string& out);

}  // namespace TamLogCtl
