#pragma once

// Wildcards in the names of files. A POSIX shell expands them; on Windows that is left to the program.

#include <string>
#include <vector>

namespace TamLogCtl {

#ifdef _WIN32
inline constexpr bool kProgramExpandsWildcards = true;
#else
inline constexpr bool kProgramExpandsWildcards = false;
#endif

// Returns whether the last part of the path has wildcards.
bool HasWildcards(const std::string& name);

// Returns the files (no directories) that match `pattern` (UTF-8), in order of their names; none when it has
// no wildcards. In the last part of the path * stands for any characters and ? for one; the case of A to Z is
// ignored.
std::vector<std::string> MatchingFiles(const std::string& pattern);

// Returns `name`, or the files that match it where the program expands wildcards and some match.
std::vector<std::string> FilesNamed(const std::string& name);

}  // namespace TamLogCtl
