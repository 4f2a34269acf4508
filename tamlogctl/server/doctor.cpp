#include "tamlogctl/server/doctor.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/message/utf8.h"
#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/json.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/server/doctor_findings.h"
#include "tamlogctl/server/filter_text.h"
#include "tamlogctl/server/log_examiner.h"
#include "tamlogctl/server/pipe_examiner.h"
#include "tamlogctl/server/service.h"
#include "tamlogctl/server/stored_lengths.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::LogReader;
using TamLogClient::Status;

constexpr std::uint32_t kBusyMs = 3000;  // a pipe is often busy for some milliseconds

void AskServer(const DoctorOptions& options, Observations& seen) {
  const StoredLengths stored = ReadStoredLengths();
  seen.longestStoredFilter = stored.longestFilter;
  seen.storedPathLength = stored.path;
  seen.pipe = ExaminePipes(kRequestPipeName, std::min(kBusyMs, options.timeoutMs), options.timeoutMs);
  if (seen.pipe != PipeState::Answers) return;
  LogClient client({kRequestPipeName, options.timeoutMs});
  SettingsBody settings{};
  seen.settingsKnown = client.GetSettings(settings) == Status::Ok;
  // A ClearLog that waits for a dead reader delays every such request: one of them is enough to see that.
  if (!seen.settingsKnown) {
    seen.pipe = PipeState::Silent;
    return;
  }
  seen.requestedCapacity = settings.maxMessage;
  seen.pollMs = settings.devicePollRate;
  seen.saveSeconds = settings.saveRate;
  seen.typeMask = settings.typeFilter;
  if (stored.PathFits()) client.GetLogFile(seen.logFile);
  if (stored.longestFilter <= kLongestFilter)
    seen.filtersKnown = client.GetFilters(seen.filters) == Status::Ok;
}

void LookAtFile(Observations& seen) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (seen.logFile.empty() ||
      GetFileAttributesExA(seen.logFile.c_str(), GetFileExInfoStandard, &data) == FALSE) {
    return;
  }
  seen.fileKnown = true;
  seen.fileBytes = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32U) | data.nFileSizeLow;
}

void LookAtObjects(LogExaminer& examiner, std::uint32_t watchMs, Observations& seen) {
  static constexpr std::array<const char*, 3> kNames{"the header lock", "the read-wait event",
                                                     "the write-wait event"};
  const auto objects = examiner.Open();
  seen.mappingError = objects.mappingError;
  seen.viewBytes = objects.viewBytes;
  seen.pageBytes = objects.pageBytes;
  if (objects.writableError != 0) {
    seen.objectError = objects.writableError;
    seen.objectName = "the page of the header";
  }
  for (std::size_t i = 0; i < kNames.size() && seen.objectError == 0; ++i) {
    seen.objectError = objects.eventErrors[i];
    seen.objectName = kNames[i];
  }
  seen.mapped = seen.mappingError == 0 && seen.objectError == 0;
  if (!seen.mapped) return;
  seen.log = examiner.Watch(watchMs);
}

// Reads once like any other reader, unless the reader would get stuck as well.
void ReadOnce(const DoctorOptions& options, Observations& seen) {
  const LogWatch& log = seen.log;
  if (!seen.mapped || log.header.serverRunning == 0 || log.lockTaken || log.readersKeptOut ||
      ReaderIsStuck(seen))
    return;
  LogReader reader;
  TamLogClient::LogSnapshot snapshot;
  Status status = reader.Open();
  if (status == Status::Ok) status = reader.Snapshot(snapshot, options.timeoutMs);
  seen.readKnown = true;
  seen.readFailed = status != Status::Ok;
  seen.readProblem = StatusText(status);
  seen.holdMicroseconds = reader.LastHoldMicroseconds();
}

const char* WordOf(FindingState state) {
  switch (state) {
    case FindingState::Ok:
      return "ok";
    case FindingState::Warning:
      return "warn";
    case FindingState::Failure:
      break;
  }
  return "fail";
}

std::string AsText(const std::vector<Finding>& findings) {
  std::string out;
  for (const Finding& finding : findings) {
    std::string line = std::string(WordOf(finding.state)) +
                       (finding.state == FindingState::Ok ? "    " : "  ") + finding.check +
                       std::string(finding.check.size() < 9 ? 9 - finding.check.size() : 1, ' ');
    TamLogClient::AppendVisible(finding.found, line);
    out += line + "\n";
    if (!finding.fix.empty()) out += "               -> " + finding.fix + "\n";
  }
  return out;
}

std::string AsJson(const std::vector<Finding>& findings, const std::vector<std::string>& done) {
  JsonArray list;
  for (const Finding& finding : findings) {
    JsonObject entry{{"check", finding.check}, {"state", WordOf(finding.state)}, {"found", finding.found}};
    if (!finding.fix.empty()) entry.emplace_back("fix", finding.fix);
    list.emplace_back(std::move(entry));
  }
  JsonObject json{{"findings", std::move(list)}};
  if (!done.empty()) json.emplace_back("unstuck", JsonArray(done.begin(), done.end()));
  return WriteJson(json, 2) + "\n";
}

// Frees what was found to be stuck, and nothing else. Returns what was done, in words.
std::vector<std::string> Unstick(LogExaminer& examiner, const Observations& seen) {
  std::vector<std::string> done;
  if (seen.log.lockTaken && examiner.FreeHeaderLock()) done.emplace_back("signalled the header lock");
  if (ReaderIsStuck(seen)) {
    done.emplace_back(examiner.ForgetReaders(seen.log.header)
                          ? "set readCount to 0 and signalled the write-wait event"
                          : "left the readers alone: something changed meanwhile; look again");
  }
  if (seen.pipe == PipeState::Blocked && FreeListener(kRequestPipeName)) {
    done.emplace_back("opened and closed the reply pipe, so that the server can go on");
  }
  if (done.empty()) done.emplace_back("nothing is stuck; nothing was done");
  return done;
}

int ExitCodeFor(const Observations& seen, const std::vector<Finding>& findings) {
  constexpr std::uint32_t kDenied = ERROR_ACCESS_DENIED;
  if (seen.pipe == PipeState::Denied || seen.mappingError == kDenied || seen.objectError == kDenied) {
    return kAccessDenied;
  }
  if (seen.pipe == PipeState::Absent && !seen.mapped) return kNotThere;
  const bool allWell = std::all_of(findings.begin(), findings.end(),
                                   [](const Finding& finding) { return finding.state == FindingState::Ok; });
  return allWell ? kDone : kNegative;
}

}  // namespace

int Doctor(const DoctorOptions& options) {
  DeferInterrupts();
  Observations seen;
  std::vector<std::string> done;
  {
    LogExaminer examiner;
    seen.service = QueryService().state;
    AskServer(options, seen);
    LookAtFile(seen);
    LookAtObjects(examiner, options.watchMs, seen);
    if (options.unstick) done = Unstick(examiner, seen);
    examiner.Close();
  }
  ReadOnce(options, seen);
  const auto findings = Diagnose(seen);
  std::string out = options.json ? AsJson(findings, done) : AsText(findings);
  if (!options.json) {
    for (const std::string& deed : done) out += "unstick: " + deed + "\n";
  }
  if (!WriteLines(out)) return kOutputFailed;
  return Interrupted() ? kInterrupted : ExitCodeFor(seen, findings);
}

}  // namespace TamLogCtl
