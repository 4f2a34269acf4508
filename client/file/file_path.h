#pragma once

// Paths as users give them (UTF-8 on every system, whatever code page Windows has), and the system's errors
// for the files there. May be called from any thread.

#include <filesystem>
#include <fstream>
#include <string>

#include "client/message/status.h"

namespace TamLogClient {

std::filesystem::path PathOf(const std::string& utf8);

// Returns the status for the `errno` of a file that could not be opened: NotFound, AccessDenied or
// SystemError.
Status StatusOfErrno(int error);

// Opens the file at `path` (UTF-8) for reading its bytes. A directory is NotAFile; devices and pipes can be
// read.
Status OpenForReading(const std::string& path, std::ifstream& file);

}  // namespace TamLogClient
