#pragma once

// Log files of several machines: a name for each machine, and a correction for its clock.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/log_file_format.h"

namespace TamLogCtl {

struct HostFile {
  std::string host;  // empty: unnamed
  std::string path;
  std::chrono::milliseconds offset{0};  // added to the times of its messages
};

// Combines plain files, labels (HOST=FILE) and offsets (HOST=+1h). Returns nothing after a report on stderr.
std::optional<std::vector<HostFile>> MakeHostFiles(const std::vector<std::string>& files,
                                                   const std::vector<std::string>& labels,
                                                   const std::vector<std::string>& offsets);

// Adds `by` to the time. A time that is not real, or would leave the years 1 to 9999, is not changed.
void ShiftTime(LogMessageBody& body, std::chrono::milliseconds by);

}  // namespace TamLogCtl
