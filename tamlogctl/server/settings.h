#pragma once

// The verb settings: capacity, rates, types and the place of the log file.

#include <cstdint>
#include <string>

#include "tamlogctl/base/common_options.h"
#include "tamlogctl/server/settings_text.h"

namespace TamLogCtl {

struct SettingsOptions : CommonOptions {
  bool json = false;       // of get
  SettingsChange change;   // of set
  bool fromInput = false;  // of set: the change is read from standard input
  bool keep = false;       // of set: hand the messages in again after a change of capacity
  bool noBackup = false;
  std::string backup;  // of set: where the messages are saved before a change of capacity; empty: a name made
                       // of the time
  bool wait = true;    // until the restart is over
  std::string path;    // of path
  bool apply = false;  // of path: restart at once
  bool force = false;  // of path: even if there is a file
};

// Each returns the program's exit code and has said on stderr what went wrong.
int GetSettings(const SettingsOptions& options);
int SetSettings(const SettingsOptions& options);
int SettingsPath(const SettingsOptions& options);

}  // namespace TamLogCtl
