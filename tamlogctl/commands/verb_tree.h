#pragma once

// The verbs and options of the command line as plain data, taken from the parser's own definitions: what is
// made of it (completions, the manual page) can never be stale.

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace TamLogCtl {

struct OptionInfo {
  std::vector<std::string> names;    // "-o", "--output"; empty for an operand
  std::string operand;               // "FILE", for an operand
  std::string value;                 // "FORMAT"; empty for a flag
  std::vector<std::string> choices;  // of the value or operand, if they are few
  std::string purpose;
  bool takesFile = false;
  bool required = false;
};

struct VerbInfo {
  std::string name;
  std::string purpose;
  std::string footer;
  std::vector<OptionInfo> options;
  std::vector<VerbInfo> verbs;
};

// The whole tree; its root is the program.
VerbInfo DescribeVerbs(const CLI::App& app);

}  // namespace TamLogCtl
