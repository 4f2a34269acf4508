#pragma once

// Opens a file without sharing, to find out whether another process has it open. A file that is only mapped
// elsewhere counts as open under Wine and as free on Windows.

#include <cstdint>
#include <string>

// Opens the file for reading and writing and closes it again. Returns 0, or the system's error.
std::uint32_t OpenFileAlone(const std::string& path);
