#pragma once

// Judges file names as Windows reads them, by their text alone, on any system.

#include <string_view>

namespace TamLogClient {

// Whether this program's file names are those of Windows.
#ifdef _WIN32
inline constexpr bool kWindowsNames = true;
#else
inline constexpr bool kWindowsNames = false;
#endif

// Returns whether the system opens a device for a name in every directory, whatever follows a dot: "NUL",
// "com1.log".
bool IsDeviceName(std::string_view component);

// Returns whether a path (UTF-8) names a device, a pipe, or an alternate stream of a file ("a.log:b"). An
// output with such a name could not be renamed to it, and opening it would write to the device.
bool NamesNoOrdinaryFile(std::string_view path);

}  // namespace TamLogClient
