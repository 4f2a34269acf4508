#pragma once

// Judges a path for the log file. Any user of the server's pipe can set the path, so its text is judged
// first: a program with more rights must not touch a network path (that sends the user's credentials to
// another machine), a device, or a path that depends on the current directory.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace TamLogCtl {

// The file in which the server reports its failures, in the directory that the service starts in.
inline constexpr std::string_view kDiagnosticFileName = "TamLogServiceLog.txt";

// Returns why no server should use this path and no program should touch it: "is a network path". Judges the
// text alone. Empty when the path names an ordinary file on a drive. `path` is in UTF-8; `bytes` is its
// length in the code page, which the server uses.
std::string PathTextProblem(std::string_view path, std::size_t bytes);

// Returns the directory of a path that has no PathTextProblem: "C:\Logs", or "C:\" of a file in the root.
std::string DirectoryOf(const std::string& path);

enum class PathFile : std::uint8_t { Missing, Log, Empty, Other, Directory, InUse, Unknown };

// What the system knows about a path. A member that keeps its initial value was not observed.
struct PathFacts {
  bool driveThere = true;
  bool networkDrive = false;  // the drive letter stands for a network path; nothing else was examined
  std::string link{};         // the first directory of the path that leads elsewhere
  bool folderThere = true;
  bool folderIsFile = false;
  PathFile file = PathFile::Missing;
  bool readOnly = false;
  std::uint64_t fileBytes = 0;
  std::uint32_t messages = 0;              // of a log
  std::uint32_t createError = 0;           // of creating the file as this user; a system error code
  std::string createText{};                // the system's text for it
  std::optional<bool> serviceMayCreate{};  // the folder's access list grants it to the service
  std::optional<std::uint64_t> freeBytes{};
};

struct PathProblem {
  std::string problem;  // empty: a server can use the path
  std::string advice;   // empty when the problem says it all
};

// Returns why a server cannot keep a log of `bytes` bytes there. An existing file is no problem. `path` is in
// UTF-8.
PathProblem PathProblemOf(const std::string& path, const PathFacts& facts, std::uint64_t bytes);

// Returns what would happen to the file that already exists there; empty when there is none.
std::string ExistingFileText(const PathFacts& facts);

// Returns "28000240 bytes" as "26.7 MiB".
std::string BytesText(std::uint64_t bytes);

}  // namespace TamLogCtl
