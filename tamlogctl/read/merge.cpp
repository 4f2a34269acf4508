#include "tamlogctl/read/merge.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>

#include "client/file/log_file_reader.h"
#include "client/message/log_message_view.h"
#include "client/message/utf8.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/read/host_files.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogFileContents;
using TamLogClient::LogMessageView;
using TamLogClient::MessageFormatter;
using TamLogClient::MessageSelection;
using TamLogClient::Status;

bool IsJson(const std::string& format) {
  return format == "json" || format == "ndjson";
}

// With the label in front of the source; what does not fit is cut.
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
                    bool json, std::string& out) {
  if (label.empty() || !json) {
    formatter.Append(label.empty() ? message : WithLabel(message, label), false, out);
    return;
  }
  const std::size_t begin = out.size();
  formatter.Append(message, false, out);
  out.insert(out.find('{', begin) + 1,
             "\"host\":" +
                 nlohmann::json(label).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + ",");
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
  void Read(std::size_t index);
  int Print(const MessageSelection& selection, MessageFormatter& formatter);

  const MergeOptions& options;
  std::vector<HostFile> files;
  std::vector<LogFileContents> logs;
  std::vector<Entry> entries;
  bool someRead = false;
  int exitCode = kDone;
};

void Merge::Read(std::size_t index) {
  LogFileContents& log = logs[index];
  const std::string& path = files[index].path;
  {
    const Busy busy("reading " + path);
    log = TamLogClient::ReadLogFile(path);
  }
  if (log.status != Status::Ok) {
    if (!options.quiet || log.status != Status::Damaged) Say(FileProblem(path, log.status, log.remark));
    const int code = ExitCodeOf(log.status);
    if (exitCode == kDone || exitCode == kDamaged) exitCode = code;
  }
  someRead = someRead || Readable(log.status);
  const auto order = OrderMessages(log.snapshot);
  if (order.damaged > 0 && !options.quiet) SayDamaged(path, order.damaged);
  if (order.damaged > 0 && exitCode == kDone) exitCode = kDamaged;
  for (const std::uint32_t slot : order.oldestFirst) {
    LogMessage& message = log.snapshot.slots[slot];
    ShiftTime(message.body, files[index].offset);
    entries.push_back({&message, TimeKey(message.body), index});
  }
}

int Merge::Print(const MessageSelection& selection, MessageFormatter& formatter) {
  std::string pending;
  std::size_t printed = 0;
  formatter.AppendHead(pending);
  for (const Entry& entry : entries) {
    if (!selection.Wants(LogMessageView(*entry.message))) continue;
    ++printed;
    AppendLabelled(formatter, *entry.message, files[entry.file].host, IsJson(options.output.format), pending);
    if (pending.size() < kWriteSize) continue;
    if (!WriteOut(pending)) return kOutputFailed;
    pending.clear();
  }
  formatter.AppendTail(pending);
  if (!WriteOut(pending)) return kOutputFailed;
  if (exitCode != kDone) return exitCode;
  return printed == 0 && !selection.Empty() ? kNothingMatched : kDone;
}

int Merge::Run() {
  auto made = MakeHostFiles(options.files, options.labels, options.offsets);
  const auto selection = made ? MakeSelection(options.selection, options.output) : std::nullopt;
  auto formatter = selection ? MakeFormatter(options.output, options.color) : std::nullopt;
  if (!formatter) return kUsage;
  files = std::move(*made);
  logs.resize(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) Read(i);
  if (!someRead) return exitCode;  // no output is better than that of an empty log
  std::stable_sort(entries.begin(), entries.end(),
                   [](const Entry& left, const Entry& right) { return left.key < right.key; });
  return Print(*selection, *formatter);
}

}  // namespace

int MergeFiles(const MergeOptions& options) {
  Merge merge(options);
  return merge.Run();
}

}  // namespace TamLogCtl
