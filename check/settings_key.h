#pragma once

// The server's settings in the registry: saved as a whole, restored, and written for a check. Keys that exist
// keep their access lists. Throws std::runtime_error when the registry refuses.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TamLogCheck {

struct SavedValue {
  std::string key;  // below the server's key; empty for the key itself
  std::string name;
  std::uint32_t type = 0;
  std::vector<std::uint8_t> bytes;
};

struct SavedSettings {
  bool makerKeyThere = false;   // of the maker's products
  bool serverKeyThere = false;  // of the server
  bool filtersKeyThere = false;
  std::vector<SavedValue> values;
};

SavedSettings SaveSettings();
void RestoreSettings(const SavedSettings& saved);

// As lines of text, so that an interrupted run can be undone.
std::string TextOf(const SavedSettings& saved);
// Returns nothing when the text was not made by TextOf.
std::optional<SavedSettings> SavedSettingsOf(const std::string& text);

// Removes all settings and filters, and writes these; the rates have small values.
void WriteSettings(const std::string& logFile, std::uint32_t capacity);
void WriteLogFile(const std::string& logFile);

// Returns the log file that the next start uses; empty when none is set.
std::string StoredLogFile();

// Returns the access list of the server's key as text.
std::string SettingsAccessList();

// Returns 0 when this thread may write the settings, else the system's error code.
std::uint32_t TryToOpenSettingsForWriting();

}  // namespace TamLogCheck
