#include "tamlogctl/read/merge.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "client/log/cursor.h"
#include "client/message/log_message_view.h"
#include "client/message/utf8.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/time_arithmetic.h"
#include "tamlogctl/read/host_files.h"
#include "tamlogctl/read/log_input.h"
#include "tamlogctl/read/reading_options.h"
#include "tamlogctl/select/log_end.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogMessageView;
using TamLogClient::MessageFormatter;

// Returns the message with LABEL/ before its source, cut to the size of the field.
LogMessage WithLabel(const LogMessage& message, const std::string& label) {
  LogMessage labelled = message;
  const std::string source = label + "/" + std::string(LogMessageView(message).Source());
  const std::string_view cut = source.size() < kTextSize
                                   ? std::string_view(source)
                                   : TamLogClient::CutAtCharacter(source, kTextSize - 1);
  std::memset(labelled.body.source, 0, sizeof(labelled.body.source));
  std::memcpy(labelled.body.source, cut.data(), cut.size());
  return labelled;
}

void AppendLabelled(MessageFormatter& formatter, const LogMessage& message, const std::string& label,
                    std::uint32_t twin, std::string& out) {
  const bool before = !label.empty() && !formatter.CarriesHost();
  formatter.Append(before ? WithLabel(message, label) : message, false, out, twin, label);
}

struct Entry {
  const LogMessage* message;
  std::uint64_t key;
  std::size_t file;
};

class Merge {
 public:
  explicit Merge(const MergeOptions& chosen) : options(chosen) {}

  int Run();

 private:
  std::optional<TamLogClient::TimeWords> End() const;
  void Read(std::size_t index);
  std::vector<std::size_t> Choose(const MessageSelection& selection) const;
  bool Print(const std::vector<std::size_t>& chosen, MessageFormatter& formatter) const;
  int Output(const MessageSelection& selection, MessageFormatter& formatter);

  const MergeOptions& options;
  std::vector<HostFile> files;
  std::vector<LogInput> logs;
  std::vector<Entry> entries;
};

void Merge::Read(std::size_t index) {
  LogInput& log = logs.emplace_back(ReadFileInput(files[index].path, options.quiet));
  for (const std::uint32_t slot : OrderMessages(log.snapshot).oldestFirst) {
    LogMessage& message = log.snapshot.slots[slot];
    ShiftTime(message.body, files[index].offset);
    entries.push_back({&message, TimeKey(message.body), index});
  }
}

// Returns the indices of the entries to print, in the order of the output.
std::vector<std::size_t> Merge::Choose(const MessageSelection& selection) const {
  std::vector<const LogMessage*> messages;
  messages.reserve(entries.size());
  for (const Entry& entry : entries) messages.push_back(entry.message);
  auto chosen = ChooseMessages(messages, selection, options.limit);
  if (!options.reverse) std::reverse(chosen.begin(), chosen.end());
  return chosen;
}

bool Merge::Print(const std::vector<std::size_t>& chosen, MessageFormatter& formatter) const {
  TamLogClient::TwinNumbers twins;
  if (formatter.ShowsCursors()) {
    for (const LogInput& log : logs) twins.Add(log.snapshot);
  }
  std::string pending;
  formatter.AppendHead(pending);
  for (const std::size_t index : chosen) {
    const Entry& entry = entries[index];
    AppendLabelled(formatter, *entry.message, files[entry.file].host, twins.Of(entry.message), pending);
    if (pending.size() < kWriteSize) continue;
    if (!WriteOut(pending)) return false;
    pending.clear();
  }
  formatter.AppendTail(pending);
  return WriteOut(pending);
}

int Merge::Output(const MessageSelection& selection, MessageFormatter& formatter) {
  const auto chosen = Choose(selection);
  Pager pager;
  if (!options.noPager && !options.count) pager.Begin();
  const bool written =
      options.count ? WriteOut(CountText(chosen.size(), options.output)) : Print(chosen, formatter);
  const bool paged = pager.Active();
  if (!pager.End() || !(written || paged)) return kOutputFailed;
  const int exitCode = WorstOf(logs);
  return chosen.empty() && !selection.Empty() ? WorseOf(exitCode, kNegative) : exitCode;
}

// Returns the latest time of the files, with their offsets.
std::optional<TamLogClient::TimeWords> Merge::End() const {
  std::optional<TamLogClient::TimeWords> latest;
  for (const HostFile& file : files) {
    const auto end = EndOfLog(file.path);
    const auto moved = end ? MovedBy(*end, file.offset) : std::nullopt;
    if (moved && (!latest || *moved > *latest)) latest = moved;
  }
  return latest;
}

int Merge::Run() {
  auto made = MakeHostFiles(options.files, options.labels, options.offsets);
  if (!made) return kUsage;
  files = std::move(*made);
  SelectionOptions wanted = options.selection;
  if (wanted.relativeToEnd) wanted.end = End();
  int refused = kUsage;
  const auto selection = MakeSelection(wanted, options.output, refused);
  auto formatter = selection ? MakeFormatter(options.output, options.color) : std::nullopt;
  if (!formatter) return refused;
  logs.reserve(files.size());  // entries point into them
  for (std::size_t i = 0; i < files.size(); ++i) Read(i);
  if (!AnyRead(logs)) return WorstOf(logs);  // the output of an empty log would mislead
  std::stable_sort(entries.begin(), entries.end(),
                   [](const Entry& left, const Entry& right) { return left.key < right.key; });
  const int exitCode = Output(*selection, *formatter);
  if (exitCode == kNegative && !options.quiet) {
    std::vector<std::string> paths;
    for (const HostFile& file : files) paths.push_back(file.path);
    SuggestSources(wanted, paths);
    SuggestEnd(wanted, options.output, End());
  }
  return exitCode;
}

}  // namespace

int MergeFiles(const MergeOptions& options) {
  Merge merge(options);
  return merge.Run();
}

}  // namespace TamLogCtl
