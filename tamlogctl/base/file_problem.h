#pragma once

// Explains problems with a file that the user named, and what to do about them.

#include <cstddef>
#include <string>

#include "client/message/status.h"

namespace TamLogCtl {

// Why the file could not be read. `remark` is the reason when the file is damaged.
std::string ProblemOf(const std::string& path, TamLogClient::Status status, const std::string& remark = {});

// The same with `path` in front.
std::string FileProblem(const std::string& path, TamLogClient::Status status, const std::string& remark = {});

// Says on stderr that `damaged` messages of the file break a rule.
void SayDamaged(const std::string& path, std::size_t damaged);

// Explains on stderr why the file `target` cannot be written, and returns the exit code. `advice` is what to
// do when it already exists.
int RefuseTarget(const std::string& target, TamLogClient::Status status, const std::string& advice);

// Whether this is the name of something other than a regular file, which cannot be replaced.
bool IsNoFile(const std::string& path);

}  // namespace TamLogCtl
