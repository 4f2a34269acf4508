#pragma once

// The entries of the server's diagnostic log, and the reason for a failed start among them.

#include <string>
#include <string_view>
#include <vector>

namespace TamLogCtl {

struct DiagnosticEntry {
  std::string time;  // "Mon Nov 16 01:45:13 2026"
  std::string text;  // several causes are separated by ": "
};

// Parses the end of a diagnostic log. What precedes the first whole entry is left out.
std::vector<DiagnosticEntry> ParseDiagnostics(std::string_view bytes);

// Returns the entry that says why the last start failed; null when the last entries are not about a start.
const DiagnosticEntry* FailedStart(const std::vector<DiagnosticEntry>& entries);

// Returns the entry's text without the words with which the server begins such entries.
std::string ReasonIn(const DiagnosticEntry& entry);

}  // namespace TamLogCtl
