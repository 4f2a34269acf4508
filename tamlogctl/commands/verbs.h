#pragma once

// All verbs of the program.

#include <vector>

#include "tamlogctl/commands/verb.h"

namespace TamLogCtl {

// The program itself as the root of all verbs. Each call makes a tree with options of its own.
Verb MakeProgram();

// Its parts, each in a file of its own.
std::vector<Verb> ShowVerbs();
Verb StatsVerb();
Verb SendVerb();
Verb FilterVerb();
std::vector<Verb> SettingsVerbs();
std::vector<Verb> ServerVerbs();
std::vector<Verb> FileVerbs();
std::vector<Verb> CompletionVerbs();

}  // namespace TamLogCtl
