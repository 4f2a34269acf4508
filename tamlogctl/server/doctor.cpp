#include "tamlogctl/server/doctor.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/live/handle.h"
#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/log/log_tail.h"
#include "client/message/utf8.h"
#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/json.h"
#include "tamlogctl/base/system_text.h"
#include "tamlogctl/base/wide_text.h"
#include "tamlogctl/server/diagnostic_file.h"
#include "tamlogctl/server/doctor_findings.h"
#include "tamlogctl/server/doctor_start_findings.h"
#include "tamlogctl/server/filter_text.h"
#include "tamlogctl/server/log_examiner.h"
#include "tamlogctl/server/log_path.h"
#include "tamlogctl/server/log_unsticker.h"
#include "tamlogctl/server/object_holders.h"
#include "tamlogctl/server/path_probe.h"
#include "tamlogctl/server/pipe_examiner.h"
#include "tamlogctl/server/service.h"
#include "tamlogctl/server/stored_lengths.h"
#include "tamlogctl/server/stored_path.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::LogReader;
using TamLogClient::Status;

constexpr std::uint32_t kDenied = ERROR_ACCESS_DENIED;
constexpr std::uint32_t kBusyMs = 3000;  // a pipe is often busy for some milliseconds

bool IsLowIntegrity() {
  constexpr DWORD kMediumIntegrity = 0x2000;
  HANDLE raw = nullptr;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &raw) == FALSE) return false;
  const TamLogClient::Handle token(raw);
  alignas(TOKEN_MANDATORY_LABEL) std::array<std::byte, 256> buffer{};
  DWORD used = 0;
  if (GetTokenInformation(token.Get(), TokenIntegrityLevel, buffer.data(), static_cast<DWORD>(buffer.size()),
                          &used) == FALSE)
    return false;
  PSID const sid = reinterpret_cast<const TOKEN_MANDATORY_LABEL*>(buffer.data())->Label.Sid;
  return *GetSidSubAuthority(sid, *GetSidSubAuthorityCount(sid) - 1U) < kMediumIntegrity;
}

void LookAtService(const ServiceReport& report, Observations& seen) {
  seen.service = report.state;
  seen.serviceProcess = report.processId;
  seen.serviceFailed = report.HasFailed();
  if (report.exitCode != ERROR_SUCCESS) seen.serviceExit = SystemText(report.exitCode);
  const ServiceDetails details = QueryServiceDetails();
  seen.program = details.program;
  seen.programMissing = details.programMissing;
  seen.everyoneMayControl = details.everyoneMayControl;
  // The name's target, without opening the device: the driver serves the server alone.
  std::array<char, 1024> target{};
  const bool there = QueryDosDeviceA("TAMLOG", target.data(), static_cast<DWORD>(target.size())) != 0;
  if (there || GetLastError() == ERROR_FILE_NOT_FOUND) seen.driverThere = there;
  DiagnosticFile diagnostics = ReadDiagnosticFile();
  seen.diagnosticFile = diagnostics.path;
  seen.diagnosticBytes = diagnostics.bytes;
  seen.diagnostics = std::move(diagnostics.last);
}

// Returns the service's process, 0 when it has none, and nothing when the service manager does not say.
std::optional<std::uint32_t> ProcessOf(const ServiceReport& report) {
  if (report.state == ServiceState::Unknown || report.state == ServiceState::Denied) return std::nullopt;
  return report.processId;
}

void AskServer(const DoctorOptions& options, const ServiceReport& report, std::optional<std::string>& path,
               Observations& seen) {
  const StoredLengths stored = ReadStoredLengths();
  seen.longestStoredFilter = stored.longestFilter;
  std::uint32_t foreign = 0;
  seen.pipe = ExaminePipes(kRequestPipeName, std::min(kBusyMs, options.timeoutMs), options.timeoutMs,
                           ProcessOf(report), foreign);
  if (foreign != 0) seen.pipeProcess = ProcessText(foreign);
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
  std::string answered;
  if (stored.PathFits() && client.GetLogFile(answered) == Status::Ok) path = std::move(answered);
  if (stored.longestFilter <= kLongestFilter)
    seen.filtersKnown = client.GetFilters(seen.filters) == Status::Ok;
}

// The path may come from any user of the pipe: its text is judged before the system sees it.
void LookAtPath(const std::string& path, std::uint64_t bytes, Observations& seen) {
  const std::string shown = AnsiToUtf8(path);
  seen.logFile = shown;
  seen.pathProblem = PathTextProblem(shown, path.size());
  if (!seen.pathProblem.empty()) return;
  PathFacts facts = LookAtForeignPath(path);
  // A running server moves its present file there, which may need no room.
  if (facts.file == PathFile::Missing && seen.pipe == PipeState::Answers) facts.freeBytes.reset();
  seen.pathLink = AnsiToUtf8(facts.link);
  const PathProblem problem = PathProblemOf(shown, facts, bytes);
  seen.pathProblem = problem.problem;
  seen.pathAdvice = problem.advice;
  seen.fileBytes = facts.fileBytes;
  seen.fileKnown = facts.fileBytes != 0;
  seen.pathTakesFile = facts.file == PathFile::Other;
}

void LookAtObjects(LogExaminer& examiner, const DoctorOptions& options, Observations& seen) {
  static constexpr std::array<const char*, 3> kNames{kHeaderLockName, kReadWaitEventName,
                                                     kWriteWaitEventName};
  const auto objects = examiner.Open();
  seen.foreignEvent = objects.foreignEvent;
  seen.mappingError = objects.mappingError;
  seen.viewBytes = objects.viewBytes;
  seen.pageBytes = objects.pageBytes;
  std::string denied = seen.mappingError != 0 ? kFileMapName : "";
  for (std::size_t i = 0; i < kNames.size() && seen.objectError == 0; ++i) {
    seen.objectError = objects.eventErrors[i];
    seen.objectName = kNames[i];
    if (seen.objectError != 0) denied = kNames[i];
  }
  if (seen.mappingError == kDenied || seen.objectError == kDenied) {
    seen.lowIntegrity = IsLowIntegrity();
    seen.objectHolders = HoldersOf({denied}, seen.serviceProcess)[denied];
  }
  const auto& changeErrors = objects.changeErrors;
  const auto* const refused = std::find(changeErrors.begin(), changeErrors.end(), kDenied);
  if (refused != changeErrors.end() && denied.empty() && !IsLowIntegrity()) {
    seen.changeDenied = kNames[static_cast<std::size_t>(refused - changeErrors.begin())];
    seen.objectHolders = HoldersOf({seen.changeDenied}, seen.serviceProcess)[seen.changeDenied];
  }
  seen.mapped = seen.mappingError == 0 && seen.objectError == 0 && seen.foreignEvent.empty();
  if (seen.mapped) seen.log = examiner.Watch(options.watchMs);
}

// Looks for the names of a server that does not serve. While its process lives it has them itself, and those
// that another process holds, too, are of interest.
void LookAtNames(Observations& seen) {
  const bool lives = ProcessLives(seen);
  if (seen.service == ServiceState::Unknown || seen.service == ServiceState::Denied ||
      (lives && seen.pipe != PipeState::Absent))
    return;
  const std::vector<std::string> names = ServerNamesInUse();
  if (names.empty()) return;
  auto holders = HoldersOf(names, lives ? seen.serviceProcess : 0);
  for (const std::string& name : names) {
    if (!lives || !holders[name].empty()) seen.heldNames.push_back({name, holders[name]});
  }
}

// Reads like any other reader, unless it would only wait. A few messages are enough to try everything that a
// reader needs.
void ReadOnce(const DoctorOptions& options, Observations& seen) {
  constexpr std::size_t kMessages = 1000;
  const LogWatch& log = seen.log;
  if (!seen.mapped || log.header.serverRunning == 0 || log.readersKeptOut) return;
  LogReader reader;
  TamLogClient::LogTail tail;
  Status status = reader.Open();
  if (status == Status::Ok) status = reader.Newest(kMessages, tail, options.timeoutMs);
  seen.readKnown = true;
  seen.readFailed = status != Status::Ok;
  seen.readProblem = StatusText(status);
  seen.copyMicroseconds = reader.LastCopyMicroseconds();
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
    if (!finding.fix.empty()) out += "               -> " + Shown(finding.fix) + "\n";
  }
  return out;
}

std::string AsJson(const std::vector<Finding>& findings, const std::vector<std::string>& done,
                   const char* key) {
  JsonArray list;
  for (const Finding& finding : findings) {
    JsonObject entry{{"check", finding.check}, {"state", WordOf(finding.state)}, {"found", finding.found}};
    if (!finding.fix.empty()) entry.emplace_back("fix", finding.fix);
    list.emplace_back(std::move(entry));
  }
  JsonObject json{{"findings", std::move(list)}};
  if (!done.empty()) json.emplace_back(key, JsonArray(done.begin(), done.end()));
  return WriteJson(json, 2) + "\n";
}

// Frees lock and readers as `seen` shows them; the lock only when waiting for it confirms that its holder is
// dead, so that a second call cannot let two programs in. Returns false when the readers were left alone.
bool UnstickLog(const Observations& seen, std::vector<std::string>& done) {
  if (seen.log.lockTaken && FreeHeaderLock()) done.emplace_back("signalled the header lock");
  if (!ReaderIsStuck(seen)) return true;
  if (!ForgetReaders(seen.log.header)) return false;
  done.emplace_back("set readCount to 0 and signalled the write-wait event");
  return true;
}

// Frees what was found to be stuck, and nothing else. Returns what was done, in words.
std::vector<std::string> Unstick(LogExaminer& examiner, const DoctorOptions& options, Observations seen) {
  std::vector<std::string> done;
  if (!UnstickLog(seen, done)) {
    // A lock that was freed lets the server move; a dead reader may keep it waiting at the next step then.
    seen.log = examiner.Watch(options.watchMs);
    if (!UnstickLog(seen, done))
      done.emplace_back("left the readers alone: something changed meanwhile; look again");
  }
  if (seen.pipe == PipeState::Blocked && FreeListener(kRequestPipeName)) {
    done.emplace_back("opened and closed the reply pipe, which lets the server continue");
  }
  if (done.empty()) done.emplace_back("nothing is stuck; nothing was done");
  return done;
}

int ExitCodeFor(const Observations& seen, const std::vector<Finding>& findings) {
  if (seen.pipe == PipeState::Denied || seen.mappingError == kDenied || seen.objectError == kDenied ||
      !seen.changeDenied.empty()) {
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
  if (options.restoreRights) {
    if (const std::uint32_t error = GrantControlToEveryone(); error != ERROR_SUCCESS) {
      return Refuse(error == ERROR_ACCESS_DENIED ? kAccessDenied : kRefused,
                    "the rights of ordinary users were not restored: " + SystemText(error));
    }
    done.emplace_back("every user may start and stop the service");
  }
  {
    LogExaminer examiner;
    const ServiceReport report = QueryService();
    LookAtService(report, seen);
    const StoredPath stored = ReadStoredPath();
    std::optional<std::string> path;
    if (stored.there) path = stored.path;
    AskServer(options, report, path, seen);
    const std::uint32_t capacity = seen.settingsKnown ? seen.requestedCapacity : stored.capacity;
    if (path) LookAtPath(*path, LogFileSize(capacity), seen);
    LookAtObjects(examiner, options, seen);
    LookAtNames(seen);
    if (options.unstick) done = Unstick(examiner, options, seen);
    examiner.Close();
  }
  ReadOnce(options, seen);
  const auto findings = Diagnose(seen);
  std::string out =
      options.json ? AsJson(findings, done, options.unstick ? "unstuck" : "done") : AsText(findings);
  if (!options.json) {
    for (const std::string& deed : done) out += (options.unstick ? "unstick: " : "done: ") + deed + "\n";
  }
  if (!WriteLines(out)) return kOutputFailed;
  return Interrupted() ? kInterrupted : ExitCodeFor(seen, findings);
}

}  // namespace TamLogCtl
