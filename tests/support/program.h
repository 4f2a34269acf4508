#pragma once

// Runs a program to its end, in a directory of the test's own.
//
//   const Outcome outcome = RunIn(folder.Path(), "\"" TAMLOGCTL "\" show --file Logs.dat");

#include <string>

namespace TestSupport {

struct Outcome {
  int exitCode = -1;  // -1 when it was ended by a signal
  std::string out;
  std::string err;
};

// `commandLine` is a line of the shell on POSIX, the line for CreateProcess on Windows; `folder` is its
// current directory, in which the files `in`, `out` and `err` are its standard streams. Under Windows a
// program that does not end within 30 s is ended and fails the test; elsewhere the watchdog's limit holds.
Outcome RunIn(const std::string& folder, const std::string& commandLine, const std::string& input = "");

}  // namespace TestSupport
