#pragma once

// Paths as users give them: UTF-8 on every system, whatever code page Windows has. May be called from any
// thread.

#include <filesystem>
#include <fstream>
#include <string>

#include "client/file/file_status.h"

namespace TamLogClient {

std::filesystem::path PathOf(const std::string& utf8);

// Opens the file at `path` (UTF-8) for reading its bytes. A directory is NotAFile; devices and pipes can be
// read.
FileStatus OpenForReading(const std::string& path, std::ifstream& file);

}  // namespace TamLogClient
