#pragma once

// Scripts that let a shell complete verbs, options and their words.

#include <cstdint>
#include <string>

#include "tamlogctl/commands/verb.h"

namespace TamLogCtl {

enum class Shell : std::uint8_t { PowerShell, Bash, Zsh };

std::string MakeCompletion(Shell shell, const Verb& program);

}  // namespace TamLogCtl
