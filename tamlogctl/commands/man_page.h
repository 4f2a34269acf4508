#pragma once

// The manual page, in the language of man(7).

#include <string>

#include "tamlogctl/commands/verb.h"

namespace TamLogCtl {

std::string MakeManPage(const Verb& program);

}  // namespace TamLogCtl
