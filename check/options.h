#pragma once

// The command line of tamlogcheck, and its exit codes.

#include <string>
#include <vector>

namespace TamLogCheck {

inline constexpr int kAllHold = 0;
inline constexpr int kSomeDiffer = 1;
inline constexpr int kUsage = 2;
inline constexpr int kRefused = 3;         // a log with messages, or a service in use: nothing was changed
inline constexpr int kServerNotTried = 4;  // what was tried holds, but no check ran the server
inline constexpr int kNotRestored = 5;     // the report names what could not be restored

struct Options {
  bool help = false;
  bool list = false;
  bool interrupt = false;      // use the installed service although it runs or its log has messages
  bool standInDevice = false;  // provide the driver's device when it is missing
  bool quick = false;          // leave out what takes longer than half a minute
  std::string server;          // the program to install; empty: TamLogServer.exe in this program's directory
  std::string folder;   // for everything that the checks write; empty: a new one in the temporary directory
  std::string report;   // the report's file; empty: a new one in the current directory
  std::string restore;  // a folder that an interrupted run has left
  std::vector<std::string> only;  // names of checks, or their beginnings; empty: all
};

// Returns the mistake in the arguments as a sentence; empty when there is none.
std::string ParseOptions(const std::vector<std::string>& arguments, Options& options);

// Returns whether a check of this name was chosen.
bool IsChosen(const Options& options, const std::string& check);

const char* HelpText();

}  // namespace TamLogCheck
