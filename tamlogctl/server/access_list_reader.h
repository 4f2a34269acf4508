#pragma once

// Reads access lists of the system into plain entries. The only includer is code for Windows.

#include <optional>
#include <vector>

#include "tamlogctl/server/access_entries.h"

namespace TamLogCtl {

// `list` is a PACL; null means that everyone has all rights. Entries of other kinds than allow and deny are
// left out.
std::vector<AccessEntry> EntriesOf(const void* list);

}  // namespace TamLogCtl
