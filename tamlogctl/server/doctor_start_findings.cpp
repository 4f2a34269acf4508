#include "tamlogctl/server/doctor_start_findings.h"

#include <utility>

#include "client/log/ring.h"
#include "tamlogctl/server/log_path.h"

namespace TamLogCtl {

namespace {

constexpr std::uint64_t kLargeDiagnostics = std::uint64_t{64} << 20U;
constexpr const char* kStart = "tamlogctl server start";

// Returns the reason for a failed start, with its time, from the diagnostic log; empty when it names none.
std::string ReasonOfFailure(const Observations& seen) {
  const DiagnosticEntry* const entry = FailedStart(seen.diagnostics);
  return entry == nullptr ? "" : " (" + entry->time + "): " + ReasonIn(*entry);
}

std::string AdviceAfterFailure(const Observations& seen) {
  if (seen.driverThere == false) return std::string("load the driver, then: ") + kStart;
  if (!seen.pathProblem.empty()) return std::string("put the path right (see below), then: ") + kStart;
  if (!seen.heldNames.empty()) return std::string("free the names (see below), then: ") + kStart;
  return std::string("remove the cause, then: ") + kStart;
}

// Returns whether the service has failed, after a finding about it.
bool CheckFailure(const Observations& seen, Findings& out) {
  const std::string reason = ReasonOfFailure(seen);
  if (seen.serviceFailed) {
    std::string found = reason.empty() ? "its process has ended" : "the last start failed" + reason;
    if (reason.empty() && !seen.serviceExit.empty()) found += ": " + seen.serviceExit;
    out.Fail("service", found, AdviceAfterFailure(seen));
    return true;
  }
  // A header that is written over keeps readers out of a server that serves.
  const bool serves = seen.pipe == PipeState::Answers || (seen.pipe != PipeState::Absent && seen.mapped);
  if (seen.service != ServiceState::Running || serves || reason.empty()) return false;
  out.Fail("service", "running, but its last restart failed" + reason,
           seen.pathProblem.empty() ? "remove the cause, then: tamlogctl server restart"
                                    : "put the path right (see below)");
  return true;
}

// A start that waits for an event of another program's making does not end, and accepts no stop.
std::string ForcedEnd(const Observations& seen) {
  if (seen.serviceProcess == 0) return "end the service's process as an administrator";
  return "as an administrator: taskkill /F /PID " + std::to_string(seen.serviceProcess);
}

std::string PathAdvice(const Observations& seen) {
  std::string advice = seen.pathAdvice.empty() ? "" : seen.pathAdvice + "; or set another path: ";
  if (seen.pipe == PipeState::Answers) return advice + "tamlogctl settings path FILE";
  return advice + "tamlogctl server stop, then as an administrator: tamlogctl settings path --offline FILE";
}

}  // namespace

bool ProcessLives(const Observations& seen) {
  return !seen.serviceFailed &&
         (seen.service == ServiceState::Running || seen.service == ServiceState::Pending);
}

std::string HoldersText(const std::vector<std::string>& holders) {
  if (holders.empty()) return "its holder cannot be seen (an administrator sees more)";
  std::string text = "held by ";
  for (const std::string& holder : holders) text += (&holder == &holders.front() ? "" : ", ") + holder;
  return text;
}

void CheckService(const Observations& seen, Findings& out) {
  const std::string advice = ServiceAdvice(seen.service);
  if (seen.everyoneMayControl == false) {
    out.Warn("rights", "ordinary users may not start and stop the service, as its installation intends",
             "as an administrator: tamlogctl doctor --restore-rights");
  }
  if (seen.programMissing) {
    return out.Fail("service", "its program is missing: " + seen.program,
                    "put it back; or: tamlogctl server remove, then: tamlogctl server install");
  }
  if (CheckFailure(seen, out)) return;
  switch (seen.service) {
    case ServiceState::Unknown:
      return out.Warn("service", "the service manager cannot be reached", advice);
    case ServiceState::NotInstalled:
      return out.Warn("service", "not installed", advice);
    case ServiceState::Denied:
      return out.Warn("service", "the service manager denied access", advice);
    case ServiceState::Stopped:
      return out.Fail("service", "installed, but stopped", advice);
    case ServiceState::Pending:
      return out.Warn("service", "starting or stopping", advice + "; if that lasts, " + ForcedEnd(seen));
    case ServiceState::Running:
      return out.Ok("service", "installed and running");
  }
}

void CheckDriver(const Observations& seen, Findings& out) {
  if (!seen.driverThere) return;
  if (*seen.driverThere) return out.Ok("driver", "its device exists");
  out.Fail("driver", R"(there is no device \\.\TAMLOG: the driver is not loaded, and no start can succeed)",
           "install or load the maker's driver");
}

void CheckPath(const Observations& seen, Findings& out) {
  if (!seen.pathProblem.empty()) {
    const std::string subject = seen.logFile.empty() ? "the stored path" : seen.logFile;
    return out.Fail("path", subject + ": " + seen.pathProblem + "; the next start would fail",
                    PathAdvice(seen));
  }
  // The running server's own file looks so when the shared header is written over: that is its own finding.
  const bool headerFails =
      seen.mapped && seen.log.header.serverRunning != 0 && !TamLogClient::RingIsSound(seen.log.header);
  if (seen.pathTakesFile && !headerFails) {
    return out.Fail("path", seen.logFile + " is not a log; the next start would empty it", PathAdvice(seen));
  }
  if (!seen.logFile.empty())
    out.Ok("path",
           seen.logFile + (seen.pathLink.empty() ? "" : "; not examined: " + seen.pathLink + " is a link"));
}

void CheckNames(const Observations& seen, Findings& out) {
  for (const HeldName& held : seen.heldNames) {
    if (ProcessLives(seen)) {
      out.Warn("names", held.name + " is " + HoldersText(held.holders) + " while the service does not answer",
               "if that lasts: end that process, then " + ForcedEnd(seen) + ", then: " + kStart);
      continue;
    }
    out.Fail("names", held.name + " exists although the server does not run; " + HoldersText(held.holders),
             std::string("end that process, then: ") + kStart);
  }
}

void CheckDiagnostics(const Observations& seen, Findings& out) {
  if (seen.diagnosticFile.empty()) return out.Ok("failures", "the server has recorded no failure");
  std::string found = seen.diagnosticFile + ", " + BytesText(seen.diagnosticBytes);
  if (seen.diagnosticBytes > kLargeDiagnostics && !seen.diagnostics.empty()) {
    found += "; last entry (" + seen.diagnostics.back().time + "): " + seen.diagnostics.back().text;
    return out.Warn(
        "failures", found,
        "remove the cause of the repeated entries; the file may be deleted while the server runs");
  }
  if (!seen.diagnostics.empty()) found += ", last entry " + seen.diagnostics.back().time;
  out.Ok("failures", found);
}

}  // namespace TamLogCtl
