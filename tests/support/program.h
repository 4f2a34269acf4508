#pragma once

// Runs a program to its end, in a directory of the test's own.
//
//   const Outcome outcome = RunIn(folder.Path(), "\"" TAMLOGCTL "\" show --file Logs.dat");

#include <string>

namespace TestSupport {

struct Outcome {
  int exitCode = -1;  // -1 when a signal ended it
  std::string out;
  std::string err;
};

// `commandLine` is a shell line on POSIX, and the line for CreateProcess on Windows; `folder` is its current
// directory, in which the files `in`, `out` and `err` are its standard streams. On Windows a program that
// does not end within 30 s is killed and fails the test; elsewhere the watchdog's limit applies.
Outcome RunIn(const std::string& folder, const std::string& commandLine, const std::string& input = "");

}  // namespace TestSupport
