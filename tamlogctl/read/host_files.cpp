#include "tamlogctl/read/host_files.h"

#include <utility>

#include "client/message/time_text.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/select/time_arithmetic.h"

namespace TamLogCtl {

namespace {

using std::chrono::milliseconds;

std::optional<std::pair<std::string, std::string>> SplitAtEquals(const std::string& option,
                                                                 const std::string& text) {
  const std::size_t at = text.find('=');
  if (at == std::string::npos || at == 0 || at + 1 == text.size()) {
    Say(option + " '" + text + "': expected " +
        (option == "--label" ? "HOST=FILE" : "HOST=+1h (ms, s, m, h, d, w)"));
    return std::nullopt;
  }
  return std::pair(text.substr(0, at), text.substr(at + 1));
}

// "+1h", "-90s", "250ms": a duration with a sign, which may be missing.
std::optional<milliseconds> ParseOffset(std::string_view text) {
  const bool back = text.starts_with('-');
  if (back || text.starts_with('+')) text.remove_prefix(1);
  const auto duration = ParseDuration(text);
  return duration && back ? -*duration : duration;
}

}  // namespace

std::optional<std::vector<HostFile>> MakeHostFiles(const std::vector<std::string>& files,
                                                   const std::vector<std::string>& labels,
                                                   const std::vector<std::string>& offsets) {
  std::vector<HostFile> all;
  all.reserve(files.size() + labels.size());
  for (const std::string& file : files) all.push_back({"", file, {}});
  for (const std::string& label : labels) {
    auto pair = SplitAtEquals("--label", label);
    if (!pair) return std::nullopt;
    all.push_back({std::move(pair->first), std::move(pair->second), {}});
  }
  for (const std::string& text : offsets) {
    const auto pair = SplitAtEquals("--offset", text);
    if (!pair) return std::nullopt;
    const auto offset = ParseOffset(pair->second);
    if (!offset) {
      Say("--offset '" + text + "': expected HOST=+1h (ms, s, m, h, d, w)");
      return std::nullopt;
    }
    bool known = false;
    for (HostFile& file : all) {
      if (file.host != pair->first) continue;
      file.offset = *offset;
      known = true;
    }
    if (!known) {
      Say("--offset '" + text + "': there is no --label " + pair->first + "=FILE");
      return std::nullopt;
    }
  }
  return all;
}

void ShiftTime(LogMessageBody& body, milliseconds by) {
  if (by.count() == 0) return;
  if (const auto moved = MovedBy(TamLogClient::WordsOf(body), by)) TamLogClient::SetTime(body, *moved);
}

}  // namespace TamLogCtl
