#pragma once

// The processes that hold the server's named objects open.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace TamLogCtl {

// Returns "process 1234 (name.exe)".
std::string ProcessText(std::uint32_t processId);

// Returns the processes that hold an object of each of `names`, which begin with "Global\". Names without a
// holder are missing: only the handles of processes that this user may examine are seen, which are all of
// them for an administrator. This process and `except` are left out.
std::map<std::string, std::vector<std::string>> HoldersOf(const std::vector<std::string>& names,
                                                          std::uint32_t except);

}  // namespace TamLogCtl
