#pragma once

// The verb settings: shows and changes capacity, rates, types and the path of the log file.

#include <cstdint>
#include <string>

#include "tamlogctl/base/common_options.h"
#include "tamlogctl/server/settings_text.h"

namespace TamLogCtl {

struct SettingsOptions : CommonOptions {
  bool json = false;       // of get
  SettingsChange change;   // of set
  bool fromInput = false;  // of set: the change is read from standard input
  bool keep = false;       // of set: send the messages again after a change of capacity
  bool keepGiven = false;  // otherwise they are sent again where the capacity grows
  bool noBackup = false;   // of set: do not save the messages before a change of capacity
  bool yes = false;        // of set: do not ask before messages are lost
  std::string backup;      // of set: the file in which they are saved; empty: a name with the present time
  bool wait = true;        // until the restart is over
  std::string path;        // of path; empty: show it
  bool apply = false;      // of path: restart at once
  bool force = false;      // of path: even if the file exists
  bool offline = false;    // of path: in the registry, while the server is stopped
};

// Each returns the exit code, and explains a failure on stderr.
int GetSettings(const SettingsOptions& options);
int SetSettings(const SettingsOptions& options);
int SettingsPath(const SettingsOptions& options);

}  // namespace TamLogCtl
