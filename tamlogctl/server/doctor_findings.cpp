#include "tamlogctl/server/doctor_findings.h"

#include <utility>

#include "client/log/ring.h"
#include "records/pipe_protocol.h"
#include "tamlogctl/server/doctor_start_findings.h"
#include "tamlogctl/server/filter_text.h"

namespace TamLogCtl {

namespace {

constexpr std::uint32_t kErrorAccessDenied = 5;

std::string Number(std::uint64_t value) {
  return std::to_string(value);
}

// "2 s", "0.5 s"
std::string Seconds(std::uint32_t milliseconds) {
  const std::uint32_t tenths = (milliseconds + 50) / 100;
  return Number(tenths / 10) + (tenths % 10 == 0 ? "" : "." + Number(tenths % 10)) + " s";
}

void CheckPipe(const Observations& seen, Findings& out) {
  const bool running = seen.service == ServiceState::Running;
  switch (seen.pipe) {
    case PipeState::Answers:
      return out.Ok("pipe", "answers");
    case PipeState::Absent:
      return out.Fail(
          "pipe", "does not exist",
          running
              ? "the service runs without its pipe: tamlogctl server restart; if that does not help, read "
                "TamLogServiceLog.txt"
              : ServiceAdvice(ServiceState::Stopped));
    case PipeState::Denied:
      return out.Fail("pipe", "access denied", "run this as an ordinary user of this machine");
    case PipeState::Blocked:
      return out.Fail("pipe",
                      "busy all the time: a client opened the request pipe without the reply pipe and "
                      "blocks all others",
                      "end that client, then: tamlogctl doctor --unstick");
    case PipeState::Taken:
      return out.Fail("pipe",
                      "busy all the time, and the server waits for no client: another process owns the "
                      "pipe's name, or its clients take every connection",
                      "end that process (Resource Monitor finds the handles of TamLogServerPipe), then: "
                      "tamlogctl server restart");
    case PipeState::Silent:
      return out.Fail("pipe", "opens, but does not answer", "restart the server: tamlogctl server restart");
    case PipeState::Failing:
      return out.Fail("pipe", "the connection ends before the answer comes",
                      "look again; if it persists: tamlogctl server restart");
    case PipeState::Foreign:
      return out.Fail("pipe",
                      seen.pipeProcess.empty()
                          ? "exists although the service does not run: another process has created it"
                          : "served by " + seen.pipeProcess + ", which is not the service",
                      "end that process, then: tamlogctl server restart");
  }
}

void CheckSettings(const Observations& seen, Findings& out) {
  if (!seen.settingsKnown) return;
  if (seen.pollMs == 0 || seen.saveSeconds == 0) {
    out.Fail("rates",
             seen.pollMs == 0 ? "the driver is read without pause" : "the disk is written without pause",
             seen.pollMs == 0 ? "tamlogctl settings set --poll 1000" : "tamlogctl settings set --save 300");
  } else {
    out.Ok("rates",
           "driver every " + Number(seen.pollMs) + " ms, disk every " + Number(seen.saveSeconds) + " s");
  }
}

void CheckFilters(const Observations& seen, Findings& out) {
  if (seen.longestStoredFilter > kLongestFilter) {
    return out.Fail("filters",
                    "one has " + Number(seen.longestStoredFilter) +
                        " bytes, 127 are allowed; a request for it would crash the server, so none was sent",
                    "remove all filters: tamlogctl filter clear");
  }
  if (!seen.filtersKnown) return;
  if (NothingPasses(seen.filters, seen.typeMask)) {
    return out.Fail("filters", "no message passes the filters",
                    (seen.typeMask & 0xFU) == 0
                        ? "tamlogctl settings set --types 0,1,2,3"
                        : "an empty exclude filter drops everything: tamlogctl filter list");
  }
  for (const FilterEntry& filter : seen.filters) {
    const std::string remark = FilterRemark(filter);
    if (remark.empty()) continue;
    return out.Warn("filters", "'" + filter.text + "' is " + remark,
                    "check it: tamlogctl filter list; remove it: tamlogctl filter remove");
  }
  out.Ok("filters", seen.filters.empty() ? "none" : Number(seen.filters.size()));
}

void CheckObjects(const Observations& seen, Findings& out) {
  if (!seen.foreignEvent.empty()) {
    return out.Fail("mapping",
                    "the log names the event '" + seen.foreignEvent +
                        "', which is not the server's: another program has written to its header",
                    "end that program, then: tamlogctl server restart");
  }
  if (seen.mappingError == kErrorAccessDenied || seen.objectError == kErrorAccessDenied) {
    const std::string found =
        "access denied to " + (seen.mappingError != 0 ? "the mapping" : seen.objectName);
    if (seen.lowIntegrity)
      return out.Fail("access", found,
                      "a process of low integrity cannot read the log: run this as an ordinary user");
    return out.Fail("access",
                    found + ": its access list was changed by another user, or it is not the server's; " +
                        HoldersText(seen.objectHolders),
                    "end the process that holds it, then: tamlogctl server restart");
  }
  if (seen.mappingError != 0) {
    return out.Fail("mapping", "not shared (error " + Number(seen.mappingError) + ")",
                    seen.pipe == PipeState::Answers
                        ? "the server is restarting or could not open its file: look again, "
                          "then read the diagnostic log"
                        : ServiceAdvice(ServiceState::Stopped));
  }
  if (seen.objectError != 0) {
    return out.Fail(
        "mapping", seen.objectName + " is missing (error " + Number(seen.objectError) + ")",
        "the section belongs to an earlier run: close all readers, then: tamlogctl server restart");
  }
  if (!seen.mapped) return;
  out.Ok("mapping", "shared, with all its events");
  if (!seen.changeDenied.empty()) {
    return out.Fail("access",
                    "access denied to " + seen.changeDenied +
                        " for programs that take read access: its access list was changed by another user; " +
                        HoldersText(seen.objectHolders),
                    "end the process that holds it, then: tamlogctl server restart");
  }
  out.Ok("access", "mapping and events can be opened");
}

void CheckSection(const Observations& seen, Findings& out) {
  const LogFileHeader& header = seen.log.header;
  if (header.serverRunning == 0) {
    return out.Warn("header", "the server is closing or opening the log", "look again in a few seconds");
  }
  if (!TamLogClient::RingIsSound(header)) {
    return out.Fail("header", "its numbers contradict each other",
                    "copy the log file if its messages matter, then: tamlogctl server restart");
  }
  out.Ok("header", Number(static_cast<std::uint64_t>(header.messageCount)) + " of " +
                       Number(static_cast<std::uint64_t>(header.maxMessages)) + " messages");
  const std::uint64_t bytes = LogFileSize(static_cast<std::uint64_t>(header.maxMessages));
  const std::uint64_t pages = (bytes + seen.pageBytes - 1) / seen.pageBytes * seen.pageBytes;
  if (seen.viewBytes != pages) {
    return out.Fail("section",
                    "the shared section has " + Number(seen.viewBytes) + " bytes instead of " +
                        Number(pages) + ": it belongs to an earlier run",
                    "close all readers, then: tamlogctl server restart");
  }
  if (seen.settingsKnown && seen.requestedCapacity != static_cast<std::uint32_t>(header.maxMessages)) {
    return out.Warn(
        "section",
        "capacity " + Number(seen.requestedCapacity) + " requested, " +
            Number(static_cast<std::uint64_t>(header.maxMessages)) + " in effect",
        "a restart is pending, or a reader kept the old section open: close all readers, then: tamlogctl "
        "server restart");
  }
  if (seen.fileKnown && seen.fileBytes != bytes) {
    return out.Warn("section",
                    "the file has " + Number(seen.fileBytes) + " bytes, the shared log " + Number(bytes),
                    "a new path takes effect at the next restart; otherwise close all readers, then: "
                    "tamlogctl server restart");
  }
  out.Ok("section", Number(bytes) + " bytes, which fits the capacity");
}

std::string StuckText(const Observations& seen) {
  const std::string unchanged = "readCount is " + std::to_string(seen.log.header.readCount) +
                                " and has not changed for " + Seconds(seen.log.watchedMs);
  if (seen.log.readersInside) return unchanged + ": a reader died or hangs";
  if (seen.log.countLeft) return unchanged + ", but no reader is inside: one died while it entered";
  return unchanged + ", but the write-wait event stays reset: a reader and the writer passed each other";
}

const char* WaitText(const Observations& seen) {
  if (seen.log.header.serverRunning == 0) return "; the server waits for it and does not start";
  return seen.log.readersKeptOut ? "; the server waits for it and writes nothing"
                                 : "; the server will wait for it at the next message";
}

void CheckReaders(const Observations& seen, Findings& out) {
  const bool running = seen.log.header.serverRunning != 0;
  if (seen.log.lockTaken) {
    out.Fail("lock", "the header lock was not free for 1 s: its holder died",
             "close all readers, then: tamlogctl doctor --unstick");
  } else if (running) {
    out.Ok("lock", "free");
  }
  if (ReaderIsStuck(seen)) {
    return out.Fail("readers", StuckText(seen) + WaitText(seen),
                    "make sure that no living reader is inside, then: tamlogctl doctor --unstick");
  }
  if (!running) return;
  if (seen.log.readersKeptOut && !seen.log.moved) {
    return out.Fail("readers",
                    "the server has blocked its readers for " + Seconds(seen.log.watchedMs) +
                        ": it hangs while it writes",
                    "close all readers, then: tamlogctl server restart");
  }
  out.Ok("readers", "none is stuck");
}

void CheckRead(const Observations& seen, Findings& out) {
  if (!seen.readKnown) return;
  if (seen.readFailed) {
    return out.Fail("read", seen.readProblem, "see the findings above; look again in a few seconds");
  }
  out.Ok("read", "the newest messages were copied in " + Number(seen.copyMicroseconds) + " microseconds");
}

}  // namespace

// While the server opens the log it is inside as a reader itself for as long as its check takes. It keeps the
// others out only while it waits for them.
bool ReaderIsStuck(const Observations& seen) {
  if (seen.log.header.serverRunning == 0 && !seen.log.readersKeptOut) return false;
  return seen.mapped && !seen.log.moved &&
         (seen.log.readersInside || seen.log.countPassed || seen.log.countLeft);
}

std::vector<Finding> Diagnose(const Observations& seen) {
  Findings out;
  CheckService(seen, out);
  CheckDriver(seen, out);
  CheckNames(seen, out);
  CheckPipe(seen, out);
  CheckPath(seen, out);
  CheckSettings(seen, out);
  CheckFilters(seen, out);
  CheckObjects(seen, out);
  if (seen.mapped) {
    CheckSection(seen, out);
    CheckReaders(seen, out);
    CheckRead(seen, out);
  }
  CheckDiagnostics(seen, out);
  return out.Take();
}

}  // namespace TamLogCtl
