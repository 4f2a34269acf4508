#include "tamlogctl/server/doctor_findings.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using TamLogCtl::Diagnose;
using TamLogCtl::Finding;
using TamLogCtl::FindingState;
using TamLogCtl::Observations;
using TamLogCtl::PipeState;
using TamLogCtl::ServiceState;

// A server without any problem.
Observations Healthy() {
  Observations seen;
  seen.service = ServiceState::Running;
  seen.pipe = PipeState::Answers;
  seen.settingsKnown = true;
  seen.requestedCapacity = 100;
  seen.pollMs = 1000;
  seen.saveSeconds = 300;
  seen.typeMask = 15;
  seen.driverThere = true;
  seen.everyoneMayControl = true;
  seen.logFile = "C:\\Logs.dat";
  seen.fileKnown = true;
  seen.fileBytes = LogFileSize(100);
  seen.filtersKnown = true;
  seen.mapped = true;
  seen.viewBytes = 57344;  // 56,240 bytes in whole pages
  seen.log.header.serverRunning = 1;
  seen.log.header.maxMessages = 100;
  seen.log.header.messageCount = 7;
  seen.log.header.nextSlot = 7;
  seen.readKnown = true;
  seen.copyMicroseconds = 80;
  return seen;
}

Finding Find(const Observations& seen, const std::string& check) {
  const auto findings = Diagnose(seen);
  const auto at = std::find_if(findings.begin(), findings.end(),
                               [&check](const Finding& finding) { return finding.check == check; });
  if (at != findings.end()) return *at;
  ADD_FAILURE() << "no finding about " << check;
  return {};
}

void ExpectBad(const Observations& seen, const std::string& check, FindingState state,
               const std::string& words) {
  const Finding finding = Find(seen, check);
  EXPECT_EQ(finding.state, state) << finding.found;
  EXPECT_NE((finding.found + "\n" + finding.fix).find(words), std::string::npos)
      << finding.found << " -> " << finding.fix;
  EXPECT_NE(finding.fix, "");
}

TEST(DoctorFindings, HealthyServerHasNothingToFix) {
  const auto findings = Diagnose(Healthy());
  EXPECT_EQ(findings.size(), 14U);
  for (const Finding& finding : findings) {
    EXPECT_EQ(finding.state, FindingState::Ok) << finding.check << ": " << finding.found;
    EXPECT_EQ(finding.fix, "") << finding.check;
  }
}

TEST(DoctorFindings, ServiceAndPipe) {
  Observations seen = Healthy();
  seen.service = ServiceState::NotInstalled;
  ExpectBad(seen, "service", FindingState::Warning, "tamlogctl server install");
  seen.service = ServiceState::Stopped;
  ExpectBad(seen, "service", FindingState::Failure, "tamlogctl server start");
  seen.pipe = PipeState::Blocked;
  ExpectBad(seen, "pipe", FindingState::Failure, "doctor --unstick");
  seen.pipe = PipeState::Taken;
  ExpectBad(seen, "pipe", FindingState::Failure, "another process owns the pipe's name");
  seen.pipe = PipeState::Silent;
  ExpectBad(seen, "pipe", FindingState::Failure, "server restart");
  seen.service = ServiceState::Running;
  seen.pipe = PipeState::Absent;
  ExpectBad(seen, "pipe", FindingState::Failure, "TamLogServiceLog.txt");
}

TEST(DoctorFindings, RatesPathAndFilters) {
  Observations seen = Healthy();
  seen.saveSeconds = 0;
  ExpectBad(seen, "rates", FindingState::Failure, "settings set --save 300");
  seen.pollMs = 0;
  ExpectBad(seen, "rates", FindingState::Failure, "settings set --poll 1000");
  seen.pathProblem = "has 256 bytes, 255 are allowed";
  ExpectBad(seen, "path", FindingState::Failure, "256 bytes");
  seen.filters = {{"ab", false}};
  ExpectBad(seen, "filters", FindingState::Warning, "'ab' is very short");
  seen.filters = {{"", true}};
  ExpectBad(seen, "filters", FindingState::Warning, "matches every source");
  seen.filters = {{"", false}};
  ExpectBad(seen, "filters", FindingState::Failure, "no message passes");
  seen.longestStoredFilter = 128;
  ExpectBad(seen, "filters", FindingState::Failure, "filter clear");
}

TEST(DoctorFindings, ObjectsThatAreMissingOrRefused) {
  Observations seen = Healthy();
  seen.mapped = false;
  seen.mappingError = 5;
  ExpectBad(seen, "access", FindingState::Failure, "mapping");
  seen.mappingError = 2;
  ExpectBad(seen, "mapping", FindingState::Failure, "restarting");
  seen.mappingError = 0;
  seen.objectError = 2;
  seen.objectName = "the write-wait event";
  ExpectBad(seen, "mapping", FindingState::Failure, "write-wait event is missing");
  seen.objectError = 5;
  ExpectBad(seen, "access", FindingState::Failure, "write-wait event");
}

TEST(DoctorFindings, EventThatOtherProgramsCannotChangeIsNamed) {
  Observations seen = Healthy();
  seen.changeDenied = "Global\\TamLogServiceReadWaitEvent";
  ExpectBad(seen, "access", FindingState::Failure,
            "access denied to Global\\TamLogServiceReadWaitEvent for programs that take read access");
  seen.objectHolders = {"process 12 (a.exe)"};
  ExpectBad(seen, "access", FindingState::Failure, "held by process 12 (a.exe)");
}

TEST(DoctorFindings, DeniedObjectIsOfLowIntegrityOrHasAChangedAccessList) {
  Observations seen = Healthy();
  seen.mapped = false;
  seen.objectError = 5;
  seen.objectName = "Global\\TamLogServiceReadWaitEvent";
  ExpectBad(
      seen, "access", FindingState::Failure,
      "access denied to Global\\TamLogServiceReadWaitEvent: its access list was changed by another user");
  ExpectBad(seen, "access", FindingState::Failure, "its holder cannot be seen (an administrator sees more)");
  seen.objectHolders = {"process 12 (a.exe)", "process 13"};
  ExpectBad(seen, "access", FindingState::Failure, "held by process 12 (a.exe), process 13");
  ExpectBad(seen, "access", FindingState::Failure, "tamlogctl server restart");
  seen.lowIntegrity = true;
  ExpectBad(seen, "access", FindingState::Failure, "low integrity");
}

TEST(DoctorFindings, AnsweringProcessHasToBeTheServices) {
  Observations seen = Healthy();
  seen.pipe = PipeState::Foreign;
  seen.pipeProcess = "process 66 (evil.exe)";
  ExpectBad(seen, "pipe", FindingState::Failure,
            "served by process 66 (evil.exe), which is not the service\nend that process");
  seen.pipeProcess.clear();
  ExpectBad(seen, "pipe", FindingState::Failure, "exists although the service does not run");
}

TEST(DoctorFindings, ForeignEventNamesAreNamed) {
  Observations seen = Healthy();
  seen.mapped = false;
  seen.foreignEvent = "Global\\Victim";
  ExpectBad(seen, "mapping", FindingState::Failure, "the log names the event 'Global\\Victim'");
}

TEST(DoctorFindings, NamesThatExistWithoutAServerAreNamedWithTheirHolders) {
  Observations seen = Healthy();
  seen.service = ServiceState::Stopped;
  seen.heldNames = {{"Global\\TamLogServiceFileMap", {"process 9 (squatter.exe)"}}};
  ExpectBad(seen, "names", FindingState::Failure,
            "Global\\TamLogServiceFileMap exists although the server does not run; held by process 9 "
            "(squatter.exe)");
  seen.serviceFailed = true;
  ExpectBad(seen, "service", FindingState::Failure, "free the names");
}

// An event of another program's making keeps a start waiting for ever.
TEST(DoctorFindings, StartThatHangsNamesTheHoldersAndTheForcedEnd) {
  Observations seen = Healthy();
  seen.service = ServiceState::Pending;
  seen.serviceProcess = 77;
  seen.pipe = PipeState::Absent;
  seen.heldNames = {{"Global\\TamLogServiceReadWaitEvent", {"process 9 (squatter.exe)"}}};
  ExpectBad(seen, "service", FindingState::Warning,
            "if that lasts, as an administrator: taskkill /F /PID 77");
  ExpectBad(seen, "names", FindingState::Warning,
            "ReadWaitEvent is held by process 9 (squatter.exe) while the service does not answer\nif that "
            "lasts: end that process, then as an administrator: taskkill /F /PID 77, then: tamlogctl server "
            "start");
}

TEST(DoctorFindings, FailedStartIsNamedWithItsReason) {
  Observations seen = Healthy();
  seen.service = ServiceState::Stopped;
  seen.serviceFailed = true;
  seen.serviceExit = "The process terminated unexpectedly (error 1067)";
  ExpectBad(seen, "service", FindingState::Failure,
            "its process has ended: The process terminated unexpectedly");
  seen.diagnostics = {
      {"Mon Nov 16 01:45:13 2026", "An exception has occured in the service's main : No path"},
      {"Mon Nov 16 01:45:13 2026", "Aborting"}};
  ExpectBad(seen, "service", FindingState::Failure,
            "the last start failed (Mon Nov 16 01:45:13 2026): No path\nremove the cause, then: tamlogctl "
            "server start");
  seen.pathProblem = "the directory C:\\Logs does not exist";
  ExpectBad(seen, "service", FindingState::Failure, "put the path right");
  seen.driverThere = false;
  ExpectBad(seen, "service", FindingState::Failure, "load the driver");
  seen.programMissing = true;
  seen.program = "C:\\gone.exe";
  ExpectBad(seen, "service", FindingState::Failure, "its program is missing: C:\\gone.exe");
}

TEST(DoctorFindings, FailedRestartOfARunningServiceIsNamed) {
  Observations seen = Healthy();
  seen.pipe = PipeState::Absent;
  seen.mapped = false;
  seen.mappingError = 2;
  seen.diagnostics = {
      {"Mon Nov 16 01:45:13 2026", "Thread terminated due to unhandled exception : Failed to open log file"}};
  ExpectBad(seen, "service", FindingState::Failure,
            "running, but its last restart failed (Mon Nov 16 01:45:13 2026): Failed to open log file");
  // An old entry of a server that serves now is no finding.
  seen.pipe = PipeState::Answers;
  EXPECT_EQ(Find(seen, "service").state, FindingState::Ok);  // readers are kept out by something else
  seen.mapped = true;
  EXPECT_EQ(Find(seen, "service").state, FindingState::Ok);
}

TEST(DoctorFindings, DriverPathAndRights) {
  Observations seen = Healthy();
  seen.driverThere = false;
  ExpectBad(seen, "driver", FindingState::Failure, R"(there is no device \\.\TAMLOG)");
  seen.everyoneMayControl = false;
  ExpectBad(seen, "rights", FindingState::Warning, "doctor --restore-rights");
  seen.pathProblem = "is a network path";
  seen.logFile = R"(\\host\share\Logs.dat)";
  ExpectBad(seen, "path", FindingState::Failure, R"(\\host\share\Logs.dat: is a network path)");
  ExpectBad(seen, "path", FindingState::Failure, "tamlogctl settings path FILE");
  seen.pipe = PipeState::Absent;
  ExpectBad(seen, "path", FindingState::Failure, "tamlogctl settings path --offline FILE");
  seen.pathAdvice = "create it: mkdir";
  ExpectBad(seen, "path", FindingState::Failure, "create it: mkdir; or set another path");
  seen.pathProblem = "";
  seen.pathTakesFile = true;
  ExpectBad(seen, "path", FindingState::Failure, "is not a log; the next start would empty it");
  seen.log.header.messageCount = -1;  // the file is the server's own, with a header written over
  EXPECT_EQ(Find(seen, "path").state, FindingState::Ok);
  seen.log.header.messageCount = 7;
  seen.pathTakesFile = false;
  seen.logFile = "";
  seen.pathProblem = "is empty";
  ExpectBad(seen, "path", FindingState::Failure, "the stored path: is empty");
  seen.logFile = "C:\\Logs.dat";
  seen.pathProblem = "";
  seen.pathLink = "C:\\link";
  EXPECT_NE(Find(seen, "path").found.find("C:\\link is a link"), std::string::npos);
}

TEST(DoctorFindings, SizeOfTheServersOwnLogIsReported) {
  Observations seen = Healthy();
  EXPECT_EQ(Find(seen, "failures").found, "the server has recorded no failure");
  seen.diagnosticFile = "C:\\TamLogServiceLog.txt";
  seen.diagnosticBytes = 2048;
  seen.diagnostics = {{"Mon Nov 16 01:45:13 2026", "File access rights timed out, forcing access."}};
  EXPECT_EQ(Find(seen, "failures").found,
            "C:\\TamLogServiceLog.txt, 2.0 KiB, last entry Mon Nov 16 01:45:13 2026");
  seen.diagnosticBytes = std::uint64_t{100} << 20U;
  ExpectBad(seen, "failures", FindingState::Warning,
            "100.0 MiB; last entry (Mon Nov 16 01:45:13 2026): File access");
}

TEST(DoctorFindings, SectionOfAnotherTimeAndContradictions) {
  Observations seen = Healthy();
  seen.fileBytes += 560;
  ExpectBad(seen, "section", FindingState::Warning, "the file has");
  seen.requestedCapacity = 200;
  ExpectBad(seen, "section", FindingState::Warning, "capacity 200 requested, 100 in effect");
  seen.viewBytes = 61440;
  ExpectBad(seen, "section", FindingState::Failure, "close all readers");
  seen.log.header.nextSlot = 100;
  ExpectBad(seen, "header", FindingState::Failure, "contradict");
  seen.log.header.serverRunning = 0;
  ExpectBad(seen, "header", FindingState::Warning, "closing or opening");
}

TEST(DoctorFindings, StuckReadersOfEveryKind) {
  Observations seen = Healthy();
  seen.log.header.readCount = 1;
  seen.log.readersInside = true;
  seen.log.watchedMs = 2010;
  ExpectBad(seen, "readers", FindingState::Failure,
            "readCount is 1 and has not changed for 2 s: a reader died or hangs");
  ExpectBad(seen, "readers", FindingState::Failure, "the server will wait for it at the next message");
  seen.log.watchedMs = 480;
  ExpectBad(seen, "readers", FindingState::Failure, "has not changed for 0.5 s");
  EXPECT_TRUE(ReaderIsStuck(seen));
  seen.log.readersKeptOut = true;
  ExpectBad(seen, "readers", FindingState::Failure, "the server waits for it and writes nothing");
  seen.log.moved = true;
  EXPECT_FALSE(ReaderIsStuck(seen));
  EXPECT_EQ(Find(seen, "readers").state, FindingState::Ok);

  seen = Healthy();
  seen.log.header.readCount = -1;
  seen.log.countPassed = true;
  ExpectBad(seen, "readers", FindingState::Failure, "passed each other");
  seen = Healthy();
  seen.log.header.readCount = 1;
  seen.log.countLeft = true;
  ExpectBad(seen, "readers", FindingState::Failure, "no reader is inside: one died while it entered");
  seen = Healthy();
  seen.log.readersKeptOut = true;
  ExpectBad(seen, "readers", FindingState::Failure, "hangs while it writes");
  seen.log.lockTaken = true;
  ExpectBad(seen, "lock", FindingState::Failure, "doctor --unstick");
}

// The server's own check is a reader inside, but keeps no other out.
TEST(DoctorFindings, ReadersThatAStartWaitsFor) {
  Observations seen = Healthy();
  seen.log.header.serverRunning = 0;
  seen.log.header.readCount = 1;
  seen.log.readersInside = true;
  EXPECT_FALSE(ReaderIsStuck(seen));
  seen.log.readersKeptOut = true;
  EXPECT_TRUE(ReaderIsStuck(seen));
  ExpectBad(seen, "readers", FindingState::Failure, "the server waits for it and does not start");
  seen.log.lockTaken = true;
  ExpectBad(seen, "lock", FindingState::Failure, "doctor --unstick");
}

TEST(DoctorFindings, ReadThatFails) {
  Observations seen = Healthy();
  seen.readFailed = true;
  seen.readProblem = "no answer in time";
  ExpectBad(seen, "read", FindingState::Failure, "no answer in time");
}

}  // namespace
