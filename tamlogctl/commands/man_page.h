#pragma once

// The manual page, in the language of man(7).

#include <string>

#include "tamlogctl/commands/verb_tree.h"

namespace TamLogCtl {

std::string MakeManPage(const VerbInfo& program);

}  // namespace TamLogCtl
