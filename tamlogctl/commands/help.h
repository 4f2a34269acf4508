#pragma once

// The help of a verb, for a terminal. Parts of it serve the manual page as well.

#include <string>
#include <vector>

#include "tamlogctl/commands/verb.h"

namespace TamLogCtl {

// Returns the words that call the verb, without its options: "tamlogctl export [OPTION]... TARGET".
std::string UsageOf(const Verb& verb, const std::string& path);

// Returns the titles of the groups of options that the verb has, in order; the empty one is for its own.
std::vector<std::string> GroupsOf(const Verb& verb);

// `path` has the words that lead to the verb: "tamlogctl filter add".
std::string MakeHelp(const Verb& verb, const std::string& path);

}  // namespace TamLogCtl
