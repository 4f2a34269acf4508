#include "tamlogctl/base/console.h"

#include <algorithm>
#include <istream>

#include "client/message/utf8.h"
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

std::string Shown(std::string_view text) {
  std::string shown;
  TamLogClient::AppendVisible(text, shown);
  return shown;
}

bool WriteLines(std::string_view lines) {
  std::string shown;
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    TamLogClient::AppendVisible(lines.substr(0, end), shown);
    if (end < lines.size()) shown += '\n';
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  return WriteOut(shown);
}

void Say(std::string_view line) {
  std::string whole = "tamlogctl: ";
  WriteErr(whole.append(Shown(line)).append("\n"));
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
