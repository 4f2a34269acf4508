#pragma once

// The log file's path and capacity as the registry holds them: what the next start of the server uses.

#include <cstdint>
#include <string>

namespace TamLogCtl {

struct StoredPath {
  bool there = false;          // false: the registry has no path, or denies access
  std::string path;            // in the ANSI code page
  std::uint32_t capacity = 0;  // messages; the default when the registry has none
};

StoredPath ReadStoredPath();

// Stores the path. Only while the server is stopped: it overwrites the value when it stops. Returns 0 or the
// system's error code.
std::uint32_t WriteStoredPath(const std::string& path);

}  // namespace TamLogCtl
