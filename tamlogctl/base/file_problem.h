#pragma once

// Explains problems with a file that the user named, with the system's own reason, and what to do about them.

#include <cstddef>
#include <string>

#include "client/file/file_status.h"

namespace TamLogCtl {

// Returns what is special about a name that Windows does not know and other systems do: wildcards, which are
// not expanded where one file is named, and names of devices. Empty for any other name, and elsewhere.
std::string NameProblem(const std::string& path, bool onWindows);

// Returns why the file could not be read. For a damaged one `remark` states the damage, for one that is no
// log what it is.
std::string ProblemOf(const TamLogClient::FileStatus& status, const std::string& remark = {});

// Returns the name by which messages mention a file that is read: "-" is standard input.
std::string ReadName(const std::string& path);

// Returns the problem with the name of the file in front.
std::string FileProblem(const std::string& path, const TamLogClient::FileStatus& status,
                        const std::string& remark = {});

// Returns why the file `target` could not be written, with its name in front.
std::string TargetProblem(const std::string& target, const TamLogClient::FileStatus& status);

// Returns the exit code for that. An existing target is an error of usage.
int TargetExitCode(TamLogClient::Status status);

// Reports on stderr that `damaged` messages of the file break a rule.
void SayDamaged(const std::string& path, std::size_t damaged);

// Explains on stderr why the file `target` cannot be written, and returns the exit code. `advice` is what to
// do when it already exists.
int RefuseTarget(const std::string& target, const TamLogClient::FileStatus& status,
                 const std::string& advice);

}  // namespace TamLogCtl
