#include "tamlogctl/read/host_files.h"

#include <utility>

#include "client/message/time_text.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/time_arithmetic.h"
#include "tamlogctl/base/wildcards.h"

namespace TamLogCtl {

namespace {

using std::chrono::milliseconds;

bool SayMalformed(const std::string& option, const std::string& text) {
  Say(option + " '" + text + "': expected " +
      (option == "--label" ? "HOST=FILE" : "HOST=+1h (ms, s, m, h, d, w)"));
  return false;
}

std::optional<std::pair<std::string, std::string>> SplitAtEquals(const std::string& option,
                                                                 const std::string& text) {
  const std::size_t at = text.find('=');
  if (at != std::string::npos && at > 0 && at + 1 < text.size())
    return std::pair(text.substr(0, at), text.substr(at + 1));
  SayMalformed(option, text);
  return std::nullopt;
}

// "+1h", "-90s", "250ms": a duration with a sign, which may be missing.
std::optional<milliseconds> ParseOffset(std::string_view text) {
  const bool back = text.starts_with('-');
  if (back || text.starts_with('+')) text.remove_prefix(1);
  const auto duration = ParseDuration(text);
  return duration && back ? -*duration : duration;
}

// Sets the offset of the files of one machine: HOST=+1h.
bool ApplyOffset(const std::string& text, std::vector<HostFile>& files) {
  const auto pair = SplitAtEquals("--offset", text);
  if (!pair) return false;
  const auto offset = ParseOffset(pair->second);
  if (!offset) return SayMalformed("--offset", text);
  bool known = false;
  for (HostFile& file : files) {
    if (file.host != pair->first) continue;
    file.offset = *offset;
    known = true;
  }
  if (!known) Say("--offset '" + text + "': there is no --label " + pair->first + "=FILE");
  return known;
}

}  // namespace

std::optional<std::vector<HostFile>> MakeHostFiles(const std::vector<std::string>& files,
                                                   const std::vector<std::string>& labels,
                                                   const std::vector<std::string>& offsets) {
  std::vector<HostFile> all;
  all.reserve(files.size() + labels.size());
  for (const std::string& file : files) all.push_back({"", file, {}});
  for (const std::string& label : labels) {
    const auto pair = SplitAtEquals("--label", label);
    if (!pair) return std::nullopt;
    for (std::string& file : FilesNamed(pair->second)) all.push_back({pair->first, std::move(file), {}});
  }
  for (const std::string& offset : offsets) {
    if (!ApplyOffset(offset, all)) return std::nullopt;
  }
  return all;
}

void ShiftTime(LogMessageBody& body, milliseconds by) {
  if (by.count() == 0) return;
  if (const auto moved = MovedBy(TamLogClient::WordsOf(body), by)) TamLogClient::SetTime(body, *moved);
}

}  // namespace TamLogCtl
