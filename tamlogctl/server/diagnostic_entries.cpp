#include "tamlogctl/server/diagnostic_entries.h"

#include <algorithm>
#include <cctype>

namespace TamLogCtl {

namespace {

constexpr std::string_view kStartFailed = "An exception has occured in the service's main : ";
constexpr std::string_view kRestartFailed = "Thread terminated due to unhandled exception : ";
constexpr std::string_view kDuringRun = "Exception occured during thread Run(): ";
constexpr std::string_view kAborting = "Aborting";
constexpr std::string_view kSeparator = " - ";
constexpr std::size_t kTimeLength = 24;

std::string_view TakeLine(std::string_view& bytes) {
  std::string_view line = bytes.substr(0, bytes.find('\n'));
  bytes.remove_prefix(std::min(bytes.size(), line.size() + 1));
  while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
  return line;
}

// The form of asctime, without the names of days and months.
bool IsTime(std::string_view line) {
  static constexpr std::string_view kForm = "aaa aaa dd dd:dd:dd dddd";
  if (line.size() != kTimeLength) return false;
  for (std::size_t i = 0; i < kTimeLength; ++i) {
    const auto letter = static_cast<unsigned char>(line[i]);
    const bool digit = std::isdigit(letter) != 0 || (i == 8 && letter == ' ');
    const bool fits = kForm[i] == 'a'   ? std::isalpha(letter) != 0
                      : kForm[i] == 'd' ? digit
                                        : kForm[i] == line[i];
    if (!fits) return false;
  }
  return true;
}

}  // namespace

std::vector<DiagnosticEntry> ParseDiagnostics(std::string_view bytes) {
  std::vector<DiagnosticEntry> entries;
  std::string_view time;
  while (!bytes.empty()) {
    const std::string_view line = TakeLine(bytes);
    if (IsTime(line)) {
      time = line;
    } else if (!time.empty() && line.starts_with(kSeparator)) {
      entries.push_back({std::string(time), std::string(line.substr(kSeparator.size()))});
      time = {};
    } else if (!entries.empty() && !line.empty()) {
      entries.back().text.append(entries.back().text.ends_with(": ") ? "" : ": ").append(line);
    }
  }
  return entries;
}

const DiagnosticEntry* FailedStart(const std::vector<DiagnosticEntry>& entries) {
  if (entries.empty()) return nullptr;
  if (entries.back().text.starts_with(kRestartFailed)) return &entries.back();
  if (entries.size() < 2 || entries.back().text != kAborting) return nullptr;
  const DiagnosticEntry& before = entries[entries.size() - 2];
  return before.text.starts_with(kStartFailed) ? &before : nullptr;
}

std::string ReasonIn(const DiagnosticEntry& entry) {
  std::string_view text = entry.text;
  for (const std::string_view beginning : {kStartFailed, kRestartFailed, kDuringRun}) {
    if (text.starts_with(beginning)) text.remove_prefix(beginning.size());
  }
  return std::string(text);
}

}  // namespace TamLogCtl
