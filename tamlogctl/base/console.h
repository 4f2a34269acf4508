#pragma once

// The program's surroundings: its streams, Ctrl-C, the environment and the pager. Texts are UTF-8. Use it
// from one thread, except for WriteErr and Interrupted.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace TamLogCtl {

bool StdoutIsTerminal();
bool StdinIsTerminal();
bool StderrIsTerminal();

// Returns the width in which to lay out texts on standard output: that of its terminal, and 80 where there is
// none.
std::size_t StdoutColumns();

// Returns whether the terminal interprets escape sequences, as far as the environment says so (TERM).
bool TerminalIsCapable();

// Makes the terminal interpret colour sequences; returns false when it cannot. From then on a program that is
// ended or stopped from outside (Ctrl-C, Ctrl-Z, a signal) switches colours off first.
bool EnableColors();

// Verbs collect about this many bytes of output before they write them.
inline constexpr std::size_t kWriteSize = std::size_t{1} << 18U;

// Writes all of `text` to standard output, line ends unchanged. Returns false when that failed. The first
// failure is explained on stderr, unless the reader of the output has closed it.
bool WriteOut(std::string_view text);

// Returns `text`, which came from outside, as it may be shown: on one line, and without anything that a
// terminal obeys (AppendVisible). Texts of messages are decoded first, by the formats.
std::string Shown(std::string_view text);

// Writes lines for people to standard output as WriteOut does. Whatever names and texts they contain, the
// only control characters that are written are their line ends.
bool WriteLines(std::string_view lines);

// Writes `text` to stderr unchanged.
bool WriteErr(std::string_view text);

// Writes one line to stderr, with the program's name in front. Names and texts in it are shown as by Shown.
void Say(std::string_view line);

// Reads one line of standard input, or of `input`, without its line end. Returns false at the end of the
// input.
bool ReadLine(std::string& line);
bool ReadFileLine(std::istream& input, std::string& line);

// Reads standard input to its end; each line ends with \n.
std::string ReadInput();

// Makes the first Ctrl-C only set Interrupted() to true, so that the verb can release what it holds; the
// second one ends the program.
void DeferInterrupts();
bool Interrupted();

// Returns whether an environment variable has a value that is not empty.
bool EnvironmentHas(const char* name);

// Returns the value of an environment variable; empty when it is not set.
std::string EnvironmentValue(const char* name);

// Sends standard output through the user's pager: the program that PAGER names, or on POSIX systems `less`
// when PAGER is not set. On Windows it is never a program of the current directory. Begin it after everything
// that depends on standard output being a terminal.
class Pager {
 public:
  Pager() = default;
  ~Pager() { End(); }
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;

  // Does nothing when standard output is not a terminal or the pager cannot be started.
  void Begin();

  // Waits until the user has left the pager. Returns false, after a line on stderr, when the pager could not
  // be started: the output was not shown then.
  bool End();

  // Returns whether a pager is active. Failing output is then not an error: the user has left the pager
  // early.
  bool Active() const { return active; }

 private:
  bool active = false;
};

}  // namespace TamLogCtl
