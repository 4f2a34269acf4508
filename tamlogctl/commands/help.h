#pragma once

// The help of a verb. Parts of it serve the manual page as well.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tamlogctl/commands/verb.h"

namespace TamLogCtl {

// Returns the words that call the verb, without its options: "tamlogctl export [OPTION]... TARGET".
std::string UsageOf(const Verb& verb, const std::string& path);

// Returns the titles of the groups of options that the verb has, in order; the empty one is for its own.
std::vector<std::string> GroupsOf(const Verb& verb);

// Returns the help of a verb, to be laid out. `path` has the words that lead to the verb: "tamlogctl filter
// add".
std::string MakeHelp(const Verb& verb, const std::string& path);

// Returns `text` wrapped for a terminal of so many columns (80 to 110 are used). Lines without an indent are
// paragraphs, which blank lines end. Indented lines stay lines: of a name and its explanation, with two
// spaces or more between them, the explanation is wrapped in its column, together with lines that begin in
// that column.
std::string LaidOut(std::string_view text, std::size_t columns);

}  // namespace TamLogCtl
