#pragma once

// What is wrong with a file that was named, in words that say what to do.

#include <cstddef>
#include <string>

#include "client/message/status.h"

namespace TamLogCtl {

// Why the file could not be read. For a damaged one `remark` says what is wrong with it.
std::string ProblemOf(const std::string& path, TamLogClient::Status status, const std::string& remark = {});

// The same with `path` in front.
std::string FileProblem(const std::string& path, TamLogClient::Status status, const std::string& remark = {});

// Says on stderr that so many messages of the file break a rule.
void SayDamaged(const std::string& path, std::size_t damaged);

// Whether something that is no ordinary file has this name: it can neither be replaced nor written anew.
bool IsNoFile(const std::string& path);

}  // namespace TamLogCtl
