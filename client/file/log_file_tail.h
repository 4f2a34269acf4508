#pragma once

// The newest part of a copied log, read with ordinary reads.

#include <cstddef>
#include <string>

#include "client/log/log_tail.h"

namespace TamLogClient {

// Reads the newest `count` messages of the file at `path` (UTF-8). False when the file cannot be read or is
// not as it should be: ReadLogFile then says why.
bool ReadLogFileTail(const std::string& path, std::size_t count, LogTail& tail);

}  // namespace TamLogClient
