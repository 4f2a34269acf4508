#pragma once

// The directory of the package. The service runs with the rights of the system and administrators run the
// tool, so no other user may change or replace the directory.

#include <filesystem>
#include <string>
#include <vector>

#include "client/message/win32.h"

namespace TamLogSetup {

// Throws SetupError with the reason if `directory` is a drive's root, on a network or a substituted drive,
// reached by a link, or if another user than the system, administrators and the caller may change or replace
// it. A directory that does not exist is fine as far as its existing parents are.
void CheckDirectory(const std::filesystem::path& directory);

// Returns the account, or the kind of entry, by which another user has one of `rights` to files with this
// access list; empty when there is none. A null list lets everyone do everything. An entry with a condition
// counts as if it held. `inherited`: whether entries count that apply only to objects created in the
// directory.
std::string StrangerIn(ACL* list, DWORD rights, bool inherited);

// Creates the missing parts of `directory`, and appends each to `made`, the outermost first. Then checks all
// of it as CheckDirectory does, because another user may have created a part meanwhile. They inherit their
// access list where that lets no other user write; elsewhere, as below C:\, only the system and
// administrators may write, and users may read.
void MakeProtected(const std::filesystem::path& directory, std::vector<std::filesystem::path>& made);
// The same without the check.
void MakeDirectories(const std::filesystem::path& directory, std::vector<std::filesystem::path>& made);
// Deletes those of `made` that are empty.
void DeleteMade(const std::vector<std::filesystem::path>& made);

}  // namespace TamLogSetup
