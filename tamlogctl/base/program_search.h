#pragma once

// Finds the program of a command, on Windows. The system's own search begins in the current directory, where
// another user may have put a program of that name; this one never looks there.

#include <optional>
#include <string>

namespace TamLogCtl {

struct ProgramCommand {
  std::wstring program;  // its full path
  std::wstring line;     // the command line, which begins with that path in quotes
};

// Finds the program of a command such as `less -R` or `"C:\a b\less.exe" -R`: a name in those directories of
// PATH that are absolute, with the extensions of PATHEXT; a path must be absolute. Returns nothing when there
// is no such program. Commands are not interpreted by a shell: | and > are arguments.
std::optional<ProgramCommand> FindProgram(const std::wstring& command);

}  // namespace TamLogCtl
