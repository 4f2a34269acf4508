#pragma once

// A child process with its standard input and output on pipes: a program, or a part of this one. The
// destructor ends it.

#include <cstdint>
#include <optional>
#include <string>

#include "check/system.h"

namespace TamLogCheck {

class Child {
 public:
  explicit Child(const std::string& commandLine);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Returns the next line of its output; nothing when none comes within `limitMs`, or the output has ended.
  std::optional<std::string> ReadLine(std::uint32_t limitMs);
  // Returns all output until its end, or the output of the first `limitMs`.
  std::string ReadAll(std::uint32_t limitMs);
  // Closes its input: a part of this program then finishes.
  void CloseInput() { input.Close(); }
  // Returns its exit code when it ends within `limitMs`.
  std::optional<std::uint32_t> WaitForEnd(std::uint32_t limitMs);
  void Kill();

 private:
  bool ReadMore();  // returns whether there was any output

  Handle process;
  Handle input;
  Handle output;
  std::string unread;
};

// The parts of this program that run as children (check/parts.cpp). Each prints "ready", and ends when its
// input does, or when it is ended by force.
//
//   map                maps the shared log, and nothing else
//   inside             takes read access, and stays inside
//   follow             follows the log like tamlogctl; prints "messages N lost N" at its end
//   open MS FILE       keeps a file open for MS milliseconds, and shares it
//   submit             submits messages without a pause; prints "messages N" at its end
std::string PartCommand(const std::string& part);

}  // namespace TamLogCheck
