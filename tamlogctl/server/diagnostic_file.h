#pragma once

// The server's diagnostic log on this machine.

#include <cstdint>
#include <string>
#include <vector>

#include "tamlogctl/server/diagnostic_entries.h"

namespace TamLogCtl {

struct DiagnosticFile {
  std::string path;  // UTF-8; empty when there is none
  std::uint64_t bytes = 0;
  std::vector<DiagnosticEntry> last;  // the entries in its last 64 KiB, UTF-8
};

// Reads the end of the diagnostic log in the working directory of services.
DiagnosticFile ReadDiagnosticFile();

}  // namespace TamLogCtl
