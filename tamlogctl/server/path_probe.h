#pragma once

// Looks at a path for the log file before a server gets it. Every path here has to have no PathTextProblem.
// Paths are in the ANSI code page, as the server uses them.

#include <cstdint>
#include <string>

#include "tamlogctl/server/log_path.h"

namespace TamLogCtl {

// Looks at a path that another user may have set. Changes nothing and follows no link: a link may lead to
// another machine.
PathFacts LookAtForeignPath(const std::string& path);

// Tries a path that this program's user has typed: looks at an existing file, and creates and removes a
// missing one.
PathFacts TryPath(const std::string& path);

// Returns whether two paths are on the same volume, so that a move between them needs no room.
bool OnOneVolume(const std::string& left, const std::string& right);

}  // namespace TamLogCtl
