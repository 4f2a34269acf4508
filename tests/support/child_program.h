#pragma once

// Helpers for a small program that a test starts, controls by lines of input, and may kill: it reports each
// step by a line of output.

#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace TestSupport {

inline void Say(const std::string& line) {
  std::cout << line << std::endl;
}

// Returns at the next line of standard input, or at its end.
inline void WaitForLine() {
  std::string line;
  std::getline(std::cin, line);
}

// Returns the exit code for main: `run`'s, or 1 after printing the text of the exception that `run` threw.
template <class Run>
int RunChildProgram(int argc, char** argv, Run run) {
  try {
    return run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& fault) {
    Say(std::string("fault: ") + fault.what());
    return 1;
  }
}

}  // namespace TestSupport
