#include "tamlogctl/read/log_input.h"

#include <algorithm>
#include <utility>

#include "client/file/log_file_reader.h"
#include "client/file/log_file_scan.h"
#include "client/file/log_file_tail.h"
#include "client/message/log_message_view.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/plain_file.h"
#include "tamlogctl/base/progress.h"

namespace TamLogCtl {

using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

namespace {

std::size_t CountDamaged(const LogSnapshot& snapshot) {
  const auto slots = snapshot.RingOrder();
  const auto isDamaged = [&snapshot](std::uint32_t slot) {
    return LogMessageView(snapshot.slots[slot]).Damaged();
  };
  return static_cast<std::size_t>(std::count_if(slots.begin(), slots.end(), isDamaged));
}

}  // namespace

int JudgeMessages(const std::string& name, std::size_t damaged, bool quiet) {
  if (damaged == 0) return kDone;
  if (!quiet) SayDamaged(name, damaged);
  return kDamaged;
}

LogInput InputOf(const std::string& name, LogSnapshot snapshot, bool quiet) {
  const int exitCode = JudgeMessages(name, CountDamaged(snapshot), quiet);
  return {std::move(snapshot), exitCode};
}

LogInput ReadFileInput(const std::string& path, bool quiet, const ReadPart& readPart) {
  const PlainFile& file = PlainFileOf(path);
  if (!file.Readable()) return {{}, file.exitCode};
  TamLogClient::LogFileContents contents;
  {
    const Busy busy("reading " + path);
    const auto readTail = [&file](std::size_t count, TamLogClient::LogTail& tail) {
      return TamLogClient::ReadLogFileTail(file.path, count, tail);
    };
    auto part = readPart ? readPart(readTail) : std::nullopt;
    if (part) {
      contents.snapshot = std::move(*part);
    } else {
      contents = TamLogClient::ReadLogFile(file.path);
    }
  }
  const TamLogClient::FileStatus& status = contents.status;
  if (status != Status::Ok && !(quiet && Readable(status))) Say(FileProblem(path, status, contents.remark));
  LogInput input = InputOf(path, std::move(contents.snapshot), quiet);
  if (status != Status::Ok) input.exitCode = ExitCodeOf(status);
  input.exitCode = WorseOf(input.exitCode, file.exitCode);
  return input;
}

std::optional<ScannedInput> ScanFileInput(const std::string& path, bool quiet,
                                          const std::function<void(const LogMessage&)>& take) {
  const PlainFile& file = PlainFileOf(path);
  TamLogClient::LogFileSurvey survey;
  TamLogClient::LogFileScan scan;
  {
    const Busy busy("counting in " + path);
    const auto look = [&](const LogMessage& message) {
      survey.Add(message);
      take(message);
      return true;
    };
    if (!file.Readable() || !scan.Open(file.path) || !scan.ForEach(look) || !IsSound(file.path, survey))
      return std::nullopt;
  }
  return ScannedInput{scan.Header(), WorseOf(JudgeMessages(path, survey.damaged, quiet), file.exitCode)};
}

bool IsSound(const std::string& path, const TamLogClient::LogFileSurvey& survey) {
  if (survey.inOrder && survey.doubtful == 0) return true;
  return TamLogClient::JudgeLogFile(path).status == Status::Ok;
}

bool WasRead(const LogInput& input) {
  return input.exitCode == kDone || (HasOutput(input.exitCode) && !input.snapshot.slots.empty());
}

int WorstOf(const std::vector<LogInput>& inputs) {
  int exitCode = kDone;
  for (const LogInput& input : inputs) exitCode = WorseOf(exitCode, input.exitCode);
  return exitCode;
}

bool AnyRead(const std::vector<LogInput>& inputs) {
  return std::any_of(inputs.begin(), inputs.end(), WasRead);
}

}  // namespace TamLogCtl
