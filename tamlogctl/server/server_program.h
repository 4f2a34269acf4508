#pragma once

// The server's program as a file: found and run to install itself.

#include <string>

namespace TamLogCtl {

inline constexpr char kAccessDeniedText[] = "access denied; run this as an administrator";

// Returns the path of TamLogServer.exe in this program's directory.
std::string ServerProgramHere();

// Lets the program install itself as the service. Returns the problem; empty when it is installed. Paths are
// in UTF-8.
std::string RunInstallation(const std::string& program);

}  // namespace TamLogCtl
