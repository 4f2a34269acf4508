#include "tamlogctl/base/console.h"

#include <istream>

#include "tamlogctl/base/console_system.h"

namespace TamLogCtl {

bool WriteOut(std::string_view text) {
  if (WriteStdout(text)) return true;
  static bool reported = false;
  const std::string problem = reported ? "" : StdoutProblem();
  reported = true;
  if (!problem.empty()) Say("standard output cannot be written: " + problem);
  return false;
}

void Say(std::string_view line) {
  std::string whole = "tamlogctl: ";
  WriteErr(whole.append(line).append("\n"));
}

bool ReadFileLine(std::istream& input, std::string& line) {
  if (!std::getline(input, line)) return false;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return true;
}

std::string ReadInput() {
  std::string text;
  for (std::string line; ReadLine(line);) text += line + "\n";
  return text;
}

bool EnvironmentHas(const char* name) {
  return !EnvironmentValue(name).empty();
}

}  // namespace TamLogCtl
