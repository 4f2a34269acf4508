#pragma once

// From arguments to the verb that is to run. Each group of verbs defines its own options in a file of its own
// (define_*.cpp), so that what a verb does knows nothing of the parser.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tamlogctl/base/common_options.h"

namespace CLI {
class App;
}

namespace TamLogCtl {

using Action = std::function<int()>;  // runs the verb and returns the program's exit code

// Nothing when there is nothing left to do: `exitCode` is then the program's. Arguments are in UTF-8.
std::optional<Action> ParseCommandLine(std::vector<std::string> arguments, int& exitCode);

// Each adds its verbs to `app`; the parsed one checks its options and sets `chosen`.
void DefineShowVerbs(CLI::App& app, Action& chosen);
void DefineStatsVerb(CLI::App& app, Action& chosen);
void DefineSendVerbs(CLI::App& app, Action& chosen);
void DefineServerVerbs(CLI::App& app, Action& chosen);
void DefineFilterVerbs(CLI::App& app, Action& chosen);
void DefineSettingsVerbs(CLI::App& app, Action& chosen);
void DefineFileVerbs(CLI::App& app, Action& chosen);
// After all others: what it writes is made of their definitions.
void DefineCompletionVerbs(CLI::App& app, Action& chosen);

// The options that every verb has.
void DefineCommonOptions(CLI::App& verb, CommonOptions& to);

}  // namespace TamLogCtl
