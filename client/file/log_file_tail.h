#pragma once

// Reads the newest part of a copied log with ordinary reads.

#include <cstddef>
#include <string>

#include "client/log/log_tail.h"

namespace TamLogClient {

// Reads the newest `count` messages of the file at `path` (UTF-8). Returns false when the file cannot be read
// or its header or size is not right: ReadLogFile then reports why.
bool ReadLogFileTail(const std::string& path, std::size_t count, LogTail& tail);

}  // namespace TamLogClient
