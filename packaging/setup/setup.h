#pragma once

// What the setup program does: installs, upgrades and removes. Every step can be undone until the last one is
// done.

#include <filesystem>
#include <string>

namespace TamLogSetup {

// The exit codes, part of the setup program's interface.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,  // everything is as before
  kUsage = 2,
  kDowngrade = 3,     // a newer version is installed
  kOtherPackage = 4,  // installed by the MSI
  kHalfUndone = 5,    // failed, and a step could not be undone
};

struct Options {
  std::filesystem::path directory;  // where the package is, or will be, installed
  std::filesystem::path payload;    // the unpacked files of the package
  std::wstring version;
  bool deleteData = false;
  bool addToPath = true;
  unsigned failAt = 0;
};

int Install(const Options& options);
int Remove(const Options& options);

// The data that the server writes: messages in the directory of the package, settings, and its own log.
struct Data {
  bool messages = true;
  bool settings = true;
  bool serverLog = true;
};

// Returns which of them exist.
Data ExistingData(const std::filesystem::path& directory);
// Deletes all of them, except those set in `kept`.
void DeleteData(const std::filesystem::path& directory, const Data& kept);

// Whether `left` is the older of two versions, each of numbers with dots between.
bool IsOlder(const std::wstring& left, const std::wstring& right);

}  // namespace TamLogSetup
