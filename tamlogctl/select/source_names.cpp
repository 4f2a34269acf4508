#include "tamlogctl/select/source_names.h"

#include <cstddef>
#include <set>

#include "client/file/log_file_reader.h"
#include "client/format/format_parts.h"
#include "client/message/log_message_view.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/live_log.h"
#include "tamlogctl/base/locale.h"
#include "tamlogctl/base/plain_file.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;

constexpr std::size_t kMostNames = 1000;
constexpr std::uint32_t kCompletionTimeoutMs = 300;  // the user waits for the completion at the prompt

void AddNames(const LogSnapshot& snapshot, std::set<std::string>& names) {
  std::set<std::string_view> seen;
  for (const std::uint32_t slot : snapshot.RingOrder()) {
    const std::string_view stored = LogMessageView(snapshot.slots[slot]).Source();
    if (stored.empty() || !seen.insert(stored).second) continue;
    std::string name;
    const bool readable = TamLogClient::AppendAsUtf8(stored, DefaultEncoding(), name);
    if (readable && Shown(name) == name) names.insert(std::move(name));
    if (names.size() >= kMostNames) return;
  }
}

}  // namespace

std::vector<std::string> SourceNames(const std::vector<std::string>& files) {
  std::set<std::string> names;
  if (files.empty()) {
    LogSnapshot snapshot;
    if (Readable(ReadLiveLog(kCompletionTimeoutMs, snapshot))) AddNames(snapshot, names);
  }
  for (const std::string& file : files)
    AddNames(TamLogClient::ReadLogFile(PlainFileOf(file).path).snapshot, names);
  return {names.begin(), names.end()};
}

}  // namespace TamLogCtl
