#pragma once

// All verbs of the program.

#include <vector>

#include "tamlogctl/commands/verb.h"

namespace TamLogCtl {

// Makes the root of all verbs: the program itself. Each call makes a separate tree with its own options.
Verb MakeProgram();

// Its parts, each in a file of its own.
std::vector<Verb> ShowVerbs();
Verb StatsVerb();
Verb SendVerb();
Verb FilterVerb();
std::vector<Verb> SettingsVerbs();
std::vector<Verb> ServerVerbs();
std::vector<Verb> FileVerbs();
std::vector<Verb> ImportVerbs();
std::vector<Verb> CompletionVerbs();

}  // namespace TamLogCtl
