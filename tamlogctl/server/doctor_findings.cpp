#include "tamlogctl/server/doctor_findings.h"

#include <utility>

#include "client/live/log_client.h"
#include "client/log/ring.h"

namespace TamLogClient {

namespace {

constexpr std::size_t kMostFilterText = 127;
constexpr std::size_t kShortFilter = 2;
constexpr std::uint64_t kLongHoldMicroseconds = 50000;
constexpr std::uint32_t kErrorAccessDenied = 5;

class Findings {
 public:
  void Ok(const char* check, std::string found) { Add(check, FindingState::Ok, std::move(found), ""); }
  void Warn(const char* check, std::string found, std::string mend) {
    Add(check, FindingState::Warning, std::move(found), std::move(mend));
  }
  void Fail(const char* check, std::string found, std::string mend) {
    Add(check, FindingState::Failure, std::move(found), std::move(mend));
  }
  std::vector<Finding> Take() { return std::move(list); }

 private:
  void Add(const char* check, FindingState state, std::string found, std::string mend) {
    list.push_back({check, state, std::move(found), std::move(mend)});
  }
  std::vector<Finding> list;
};

std::string Number(std::uint64_t value) {
  return std::to_string(value);
}

std::string Watched(const Observations& seen) {
  return " (watched for " + Number(seen.watchedMs) + " ms)";
}

void CheckService(const Observations& seen, Findings& out) {
  switch (seen.service) {
    case ServiceState::Unknown:
      return out.Warn("service", "the service manager could not be asked", "ask again as an administrator");
    case ServiceState::NotInstalled:
      return out.Warn("service", "not installed", "install it: TamLogServer.exe -install");
    case ServiceState::Denied:
      return out.Warn("service", "the service manager refused to tell its state",
                      "ask again as an administrator");
    case ServiceState::Stopped:
      return out.Fail("service", "installed, but stopped", "start it: tamlogctl server start");
    case ServiceState::Pending:
      return out.Warn("service", "starting or stopping", "wait up to 20 s and look again");
    case ServiceState::Running:
      return out.Ok("service", "installed and running");
  }
}

void CheckPipe(const Observations& seen, Findings& out) {
  const bool running = seen.service == ServiceState::Running;
  switch (seen.pipe) {
    case PipeState::Answers:
      return out.Ok("pipe", "answers");
    case PipeState::Absent:
      return out.Fail("pipe", "there is none",
                      running ? "the service runs without serving: stop and start it, and read its "
                                "TamLogServiceLog.txt"
                              : "start the server: tamlogctl server start");
    case PipeState::Denied:
      return out.Fail("pipe", "access denied", "run as a user of this machine with ordinary rights");
    case PipeState::Blocked:
      return out.Fail("pipe",
                      "busy all the time: a client opened the request pipe and not the reply pipe, and keeps "
                      "all others out",
                      "end that client, then: tamlogctl doctor --unstick");
    case PipeState::Silent:
      return out.Fail("pipe", "opens, but does not answer", "restart the server: tamlogctl server restart");
    case PipeState::Failing:
      return out.Fail("pipe", "breaks off", "look again; if it stays so: tamlogctl server restart");
  }
}

void CheckSettings(const Observations& seen, Findings& out) {
  if (seen.keptPathLength > kMostPath) {
    out.Fail("path", "the log file's path has " + Number(seen.keptPathLength) + " bytes, 255 are allowed",
             "the next start fails: set a shorter one: tamlogctl settings path FILE");
  } else if (!seen.logFile.empty()) {
    out.Ok("path", seen.logFile);
  }
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
  if (seen.longestKeptFilter > kMostFilterText) {
    return out.Fail("filters",
                    "one has " + Number(seen.longestKeptFilter) +
                        " bytes, 127 are allowed; the server ends when asked for it, so it was not asked",
                    "remove all: tamlogctl filter clear");
  }
  if (!seen.filtersKnown) return;
  if (NothingPasses(seen.filters, seen.typeMask)) {
    return out.Fail("filters", "no message passes them",
                    (seen.typeMask & 0xFU) == 0
                        ? "tamlogctl settings set --types 0,1,2,3"
                        : "an empty exclude filter drops everything: tamlogctl filter list");
  }
  for (const FilterEntry& filter : seen.filters) {
    if (filter.text.size() > kShortFilter) continue;
    return out.Warn("filters",
                    filter.text.empty() ? "an empty one matches every source"
                                        : "'" + filter.text + "' is very short and matches many sources",
                    "tamlogctl filter list, then filter remove");
  }
  out.Ok("filters", seen.filters.empty() ? "none" : Number(seen.filters.size()));
}

void CheckObjects(const Observations& seen, Findings& out) {
  if (seen.mappingError == kErrorAccessDenied || seen.objectError == kErrorAccessDenied) {
    return out.Fail("access",
                    "access denied to the " + (seen.mappingError != 0 ? "mapping" : seen.objectName),
                    "a process of low integrity cannot read the log: run as an ordinary user");
  }
  if (seen.mappingError != 0) {
    return out.Fail("mapping", "not shared (error " + Number(seen.mappingError) + ")",
                    seen.pipe == PipeState::Answers
                        ? "the server is restarting, or could not open its file: look again, "
                          "then read TamLogServiceLog.txt"
                        : "start the server: tamlogctl server start");
  }
  if (seen.objectError != 0) {
    return out.Fail("mapping", seen.objectName + " is missing (error " + Number(seen.objectError) + ")",
                    "the section is of another time: close all readers, then tamlogctl server restart");
  }
  if (!seen.mapped) return;
  out.Ok("mapping", "shared, with all its events");
  out.Ok("access", "mapping and events can be opened");
}

void CheckSection(const Observations& seen, Findings& out) {
  const LogFileHeader& header = seen.header;
  if (header.serverRunning == 0) {
    return out.Warn("header", "the server is closing or opening the log", "look again in some seconds");
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
                    "the shared section has " + Number(seen.viewBytes) + " bytes, " + Number(pages) +
                        " are right: it is of another time",
                    "close all readers, then tamlogctl server restart");
  }
  if (seen.settingsKnown && seen.capacityAsked != static_cast<std::uint32_t>(header.maxMessages)) {
    return out.Warn(
        "section",
        "a capacity of " + Number(seen.capacityAsked) + " is asked for, " +
            Number(static_cast<std::uint64_t>(header.maxMessages)) + " is in effect",
        "a restart is pending, or a reader kept the old section: close all readers, then tamlogctl "
        "server restart");
  }
  if (seen.fileKnown && seen.fileBytes != bytes) {
    return out.Warn(
        "section", "the file has " + Number(seen.fileBytes) + " bytes, " + Number(bytes) + " are shared",
        "a new path takes effect at a restart; otherwise close all readers and restart the server");
  }
  out.Ok("section", Number(bytes) + " bytes, as the capacity wants");
}

std::string StuckText(const Observations& seen) {
  const std::string count = std::to_string(seen.header.readCount);
  if (seen.readersInside) return count + " inside, and nobody moves: one died or hangs there";
  if (seen.countLeft) return count + " counted, but nobody is inside: one died while it entered";
  return "the count is " + count + ", but nobody is let in to write: reader and writer passed each other";
}

void CheckReaders(const Observations& seen, Findings& out) {
  if (seen.header.serverRunning == 0) return;
  if (seen.lockTaken) {
    out.Fail("lock", "the header lock is not given back: its holder has died",
             "close all readers, then: tamlogctl doctor --unstick");
  } else {
    out.Ok("lock", "free");
  }
  if (ReaderIsStuck(seen)) {
    return out.Fail("readers",
                    StuckText(seen) + Watched(seen) +
                        (seen.readersKeptOut ? "; the server waits for it and writes nothing"
                                             : "; the next message will wait for it"),
                    "make sure that no reader is alive inside, then: tamlogctl doctor --unstick");
  }
  if (seen.readersKeptOut && !seen.moved) {
    return out.Fail("readers", "the server hangs while it writes, and lets no reader in" + Watched(seen),
                    "close all readers, then tamlogctl server restart");
  }
  out.Ok("readers", "nobody is stuck inside");
}

void CheckRead(const Observations& seen, Findings& out) {
  if (!seen.readKnown) return;
  if (seen.readFailed) {
    return out.Fail("read", seen.readProblem, "see the findings above; look again in some seconds");
  }
  const std::string took = "read access was held for " + Number(seen.holdMicroseconds) + " microseconds";
  if (seen.holdMicroseconds > kLongHoldMicroseconds) {
    return out.Warn("read", took, "the server waits as long: a smaller capacity makes it shorter");
  }
  out.Ok("read", took);
}

}  // namespace

bool ReaderIsStuck(const Observations& seen) {
  return seen.mapped && !seen.moved && (seen.readersInside || seen.countPassed || seen.countLeft);
}

std::vector<Finding> Diagnose(const Observations& seen) {
  Findings out;
  CheckService(seen, out);
  CheckPipe(seen, out);
  CheckSettings(seen, out);
  CheckFilters(seen, out);
  CheckObjects(seen, out);
  if (seen.mapped) {
    CheckSection(seen, out);
    CheckReaders(seen, out);
    CheckRead(seen, out);
  }
  return out.Take();
}

}  // namespace TamLogClient
