#pragma once

// Scripts that let a shell complete verbs, options and their words: they ask the program
// (commands/completer.h).

#include <cstdint>
#include <string>

namespace TamLogCtl {

enum class Shell : std::uint8_t { PowerShell, Bash, Zsh };

std::string CompletionScript(Shell shell);

}  // namespace TamLogCtl
