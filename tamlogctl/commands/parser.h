#pragma once

// The parser of the command line. Only parser.cpp includes the library that parses.

#include <string>
#include <vector>

#include "tamlogctl/commands/verb.h"

namespace TamLogCtl {

struct Parsed {
  const Verb* verb = nullptr;  // in the tree that was parsed for; null when there is nothing to run
  std::string help;            // requested: print it
  std::string problem;         // a usage error: print it
  std::string path;            // the words that lead to the verb in question, "tamlogctl filter add"
};

// Stores the values of `arguments`, in UTF-8 and without the program's name, through the options of the verb
// they name.
Parsed Parse(const Verb& program, std::vector<std::string> arguments);

}  // namespace TamLogCtl
