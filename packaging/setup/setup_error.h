#pragma once

// The failure of one step, and helpers that make it from the system's last error.

#include <stdexcept>
#include <string>

namespace TamLogSetup {

// Texts are UTF-8.
class SetupError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string Utf8(const std::wstring& text);

// Throws SetupError: what failed, and the system's text for the error.
[[noreturn]] void Fail(const std::string& what, unsigned long error);
// The same with the last error of this thread.
[[noreturn]] void FailLast(const std::string& what);

// Writes a line to standard output and to the log file, if one is open.
void Say(const std::string& line);
// Appends everything that Say writes from now on. Throws SetupError for a file that cannot be opened and for
// a link.
void OpenLog(const std::wstring& path);

}  // namespace TamLogSetup
