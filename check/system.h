#pragma once

// The calls of Windows that several checks use. Failures throw std::runtime_error with the name of the call
// and the system's error number.

#include <cstdint>
#include <functional>
#include <string>

#include "client/live/handle.h"

namespace TamLogCheck {

using TamLogClient::Handle;

// Throws with `doing` and the calling thread's last error.
[[noreturn]] void Fail(const std::string& doing);
[[noreturn]] void Fail(const std::string& doing, std::uint32_t error);

// Returns "error 5".
std::string ErrorText(std::uint32_t error);

// Evaluates `condition` every 20 ms until it holds or `limitMs` have passed. Returns its last value.
bool Eventually(std::uint32_t limitMs, const std::function<bool()>& condition);

// Milliseconds since the machine was started.
std::uint64_t Ticks();

// Returns the version of Wine; empty on Windows.
std::string WineVersion();

// Returns the directory of this program, and this program's path.
std::string OwnDirectory();
std::string OwnPath();

// Returns the system directory, "C:\Windows\System32".
std::string SystemDirectory();

std::string PathIn(const std::string& directory, const std::string& name);
bool Exists(const std::string& path);
// Returns the size of a file; 0 when it does not exist.
std::uint64_t SizeOf(const std::string& path);
// Creates a directory in which only the system and administrators may write, and users may read: a program
// in it that runs as the system cannot be replaced.
void CreateProtectedDirectory(const std::string& path);
void WriteTextFile(const std::string& path, const std::string& text);
// Returns the bytes of a file that others may have open; empty when it cannot be read.
std::string ReadTextFile(const std::string& path);
// Deletes a directory and the files in it. Returns whether it is gone.
bool RemoveDirectoryAt(const std::string& path);

// Opens or creates a file. `access` and `sharing` as for CreateFile; an empty handle leaves the last error.
Handle OpenAt(const std::string& path, std::uint32_t access, std::uint32_t sharing, bool create = false);

// Returns the access list of an object as text, "D:(A;;0x1f0003;;;WD)".
enum class ObjectKind : std::uint8_t { Kernel, File, Key };
std::string AccessListOf(void* object, ObjectKind kind);

}  // namespace TamLogCheck
