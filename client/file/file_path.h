#pragma once

// Names of files as users give them: UTF-8 on every system, whatever code page Windows has.

#include <filesystem>
#include <string>

#include "client/message/status.h"

namespace TamLogClient {

std::filesystem::path PathOf(const std::string& utf8);

// What `errno` says of a file that could not be opened: NotFound, AccessDenied or SystemError.
Status StatusOfErrno(int error);

}  // namespace TamLogClient
