#pragma once

// Judges what was observed about a server: what is wrong, and how to fix it. Observing is the task of the
// examiners.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/message/filter_rule.h"
#include "records/log_file_format.h"
#include "tamlogctl/server/diagnostic_entries.h"
#include "tamlogctl/server/findings.h"
#include "tamlogctl/server/service_state.h"

namespace TamLogCtl {

enum class PipeState : std::uint8_t {
  Answers,
  Absent,  // no pipe of this name exists
  Denied,
  Blocked,  // busy all the time: a client opened the request pipe without the reply pipe
  Taken,    // busy all the time, and no server waits for the rest of a client
  Silent,   // opens, but does not answer in time
  Failing,  // opens, and the connection ends before the answer comes
  Foreign,  // a process has created it that is not the service's
};

// A name of the server's objects that exists while the server does not run, or that another process holds
// while the service runs and does not answer.
struct HeldName {
  std::string name;
  std::vector<std::string> holders;  // processes; empty when they cannot be seen
};

// The shared log over some time. "All the time" means at every sample.
struct LogWatch {
  LogFileHeader header{};  // at the last sample
  std::uint32_t watchedMs = 0;
  bool lockTaken = false;       // the header lock was not free for a second
  bool readersInside = false;   // write-wait reset and readCount above 0, all the time
  bool countPassed = false;     // write-wait reset and readCount at most 0, all the time
  bool countLeft = false;       // write-wait signalled and readCount not 0, all the time
  bool readersKeptOut = false;  // read-wait reset, all the time
  bool writerWaits = false;     // read-wait is reset at the last sample
  bool moved = false;           // readCount or changeCount differed at some sample
};

// A member that keeps its initial value was not observed, and no finding is made of it.
struct Observations {
  ServiceState service = ServiceState::Unknown;
  bool serviceFailed = false;  // it was started, and its process has ended by a failure
  std::string serviceExit;     // the system's text for that failure; empty when it has none
  std::string program;         // the service's
  bool programMissing = false;
  std::optional<bool> everyoneMayControl;  // every user may start and stop the service
  std::optional<bool> driverThere;
  std::uint32_t serviceProcess = 0;  // 0: none, or not known
  std::vector<HeldName> heldNames;

  std::string diagnosticFile;  // the server's diagnostic log
  std::uint64_t diagnosticBytes = 0;
  std::vector<DiagnosticEntry> diagnostics;  // its last entries

  PipeState pipe = PipeState::Absent;
  std::string pipeProcess;  // of a Foreign pipe: its process; empty when that is not known

  bool settingsKnown = false;
  std::uint32_t requestedCapacity = 0;
  std::uint32_t pollMs = 0;
  std::uint32_t saveSeconds = 0;
  std::uint32_t typeMask = 0;
  std::string logFile;      // UTF-8
  std::string pathProblem;  // why no start can use it; empty: a start can
  std::string pathAdvice;
  std::string pathLink;        // a part of the path is a link: the file was not examined
  bool pathTakesFile = false;  // another file, not a log, has this path
  bool fileKnown = false;
  std::uint64_t fileBytes = 0;

  bool filtersKnown = false;
  std::vector<TamLogClient::FilterEntry> filters;
  std::size_t longestStoredFilter =
      0;  // bytes, as stored in the registry: seen without a request to the server

  std::uint32_t mappingError = 0;          // system error codes
  std::uint32_t objectError = 0;           // the first one of an event
  std::string objectName;                  // the object of that error
  std::string changeDenied;                // an event that programs may only look at
  std::vector<std::string> objectHolders;  // processes that hold it, other than the service's
  bool lowIntegrity = false;               // this process is kept away from what other users share
  std::string foreignEvent;                // the log names this event, which is not the server's
  bool mapped = false;                     // all objects could be opened, and `log` was observed
  std::uint64_t viewBytes = 0;             // whole pages
  std::uint32_t pageBytes = 4096;
  LogWatch log;

  bool readKnown = false;  // one read was tried
  bool readFailed = false;
  std::string readProblem;
  std::uint64_t copyMicroseconds = 0;  // how long the read took
};

// Returns one finding for each check, in the order of the checks.
std::vector<Finding> Diagnose(const Observations& seen);

// Returns whether a reader died or hangs while it holds read access: the next flush waits for it without
// limit.
bool ReaderIsStuck(const Observations& seen);

}  // namespace TamLogCtl
