#pragma once

// The program's surroundings: its streams, its interruption by Ctrl-C, its clock. One implementation per
// operating system.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "client/message/time_text.h"

namespace TamLogCtl {

bool StdoutIsTerminal();
bool StdinIsTerminal();
bool StderrIsTerminal();

// Makes a terminal obey colours; false when it cannot.
bool EnableColors();

// Output is gathered to pieces of about so many bytes before it is written.
inline constexpr std::size_t kWriteSize = std::size_t{1} << 18U;

// Writes all of it at once; UTF-8, line ends as they are. False once standard output has failed: why has been
// said, unless a reader only went away.
bool WriteOut(std::string_view text);

// Writes to stderr as it is.
bool WriteErr(std::string_view text);

// Writes one line to stderr, with the program's name in front.
void Say(std::string_view line);

// Standard input line by line, without line ends. False at its end.
bool ReadLine(std::string& line);

// From now on Ctrl-C only sets a flag, so that what is held can be given back; a second one ends the program.
void DeferInterrupts();
bool Interrupted();

// Returns early, with false, when interrupted.
bool SleepFor(std::uint32_t milliseconds);

// Milliseconds since some moment in the past; never goes back.
std::uint64_t Ticks();

// The local time.
TamLogClient::TimeWords Now();

// The minutes by which local time is ahead of UTC at a moment given in UTC.
int LocalOffsetMinutes(const TamLogClient::TimeWords& utc);

std::uint32_t ProcessId();

// An environment variable that is set to something.
bool EnvironmentHas(const char* name);

// What it is set to; empty when it is not.
std::string EnvironmentValue(const char* name);

// While it lives, standard output goes through the user's pager: the program that PAGER names, or less where
// that is usual. Begin it after everything that depends on standard output being a terminal.
class Pager {
 public:
  Pager() = default;
  ~Pager() { End(); }
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;

  // Does nothing when standard output is no terminal or no pager can be started.
  void Begin();

  // Waits until the user has left the pager. False, after a word on stderr, when it could not be started:
  // nothing was shown then.
  bool End();

  // Who leaves a pager early has seen enough: failing output is then no error.
  bool Active() const { return active; }

 private:
  bool active = false;
};

}  // namespace TamLogCtl
