#pragma once

// Log files that come from several machines: a name for each, and a correction for its clock.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/log_file_format.h"

namespace TamLogCtl {

struct HostFile {
  std::string host;  // empty: without a name
  std::string path;
  std::chrono::milliseconds offset{0};
};

// From plain files, HOST=FILE and HOST=OFFSET. Nothing after a word on stderr.
std::optional<std::vector<HostFile>> MakeHostFiles(const std::vector<std::string>& files,
                                                   const std::vector<std::string>& labels,
                                                   const std::vector<std::string>& offsets);

// Impossible dates, and those that would leave the years 1 to 9999, stay as they are.
void ShiftTime(LogMessageBody& body, std::chrono::milliseconds by);

}  // namespace TamLogCtl
