#pragma once

// Reads access lists of the system into plain entries. The only includer is code for Windows.

#include <optional>
#include <string>
#include <vector>

#include "tamlogctl/server/access_entries.h"

namespace TamLogCtl {

// `list` is a PACL; null means that everyone has all rights. Entries of other kinds than allow and deny are
// left out. Of entries with a condition, those that allow are in the list and those that deny are not.
std::vector<AccessEntry> EntriesOf(const void* list);

// Returns the names of the accounts, other than administrators and this user, that may change the program
// (UTF-8, a full path), put files next to it, or replace a directory of its path. None when the lists cannot
// be read.
std::vector<std::string> OthersWhoMayChange(const std::string& program);

}  // namespace TamLogCtl
