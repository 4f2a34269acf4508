#include <algorithm>
#include <vector>

#include "client/log_file_reader.h"
#include "client/log_message_view.h"
#include "tamlogctl/console.h"
#include "tamlogctl/exit_code.h"
#include "tamlogctl/printer.h"
#include "tamlogctl/show.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogFileContents;
using TamLogClient::Status;

// Appends the file's messages and returns the exit code that the file alone would give.
int ReadOne(const std::string& path, LogFileContents& contents, std::vector<const LogMessage*>& messages) {
  contents = TamLogClient::ReadLogFile(path);
  if (contents.status != Status::Ok && contents.status != Status::Damaged) {
    Say(path + ": " + StatusText(contents.status));
    return ExitCodeOf(contents.status);
  }
  const auto order = OrderMessages(contents.snapshot);
  for (const std::uint32_t slot : order.oldestFirst) messages.push_back(&contents.snapshot.slots[slot]);
  if (contents.status == Status::Damaged) Say(path + ": " + contents.remark);
  if (order.damaged > 0)
    Say(path + ": " + std::to_string(order.damaged) + " messages break a rule of the format");
  return contents.status == Status::Damaged || order.damaged > 0 ? kDamaged : kDone;
}

}  // namespace

int ShowFiles(const ShowOptions& options) {
  auto printer = Printer::Make(options);
  if (!printer) return kUsage;
  std::vector<LogFileContents> logs(options.files.size());
  std::vector<const LogMessage*> messages;
  int exitCode = kDone;
  for (std::size_t i = 0; i < logs.size(); ++i) {
    const int code = ReadOne(options.files[i], logs[i], messages);
    if (exitCode == kDone || exitCode == kDamaged) exitCode = code == kDone ? exitCode : code;
  }
  if (logs.size() > 1) {
    std::stable_sort(messages.begin(), messages.end(), [](const LogMessage* left, const LogMessage* right) {
      return TimeKey(left->body) < TimeKey(right->body);
    });
  }
  printer->PrintLast(messages);
  if (printer->OutputFailed()) return kOutputFailed;
  if (exitCode != kDone) return exitCode;
  return printer->Searches() && printer->Printed() == 0 ? kNothingMatched : kDone;
}

}  // namespace TamLogCtl
