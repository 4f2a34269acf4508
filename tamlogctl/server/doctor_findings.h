#pragma once

// Judges what was observed about a server: what is wrong, and how to fix it. Observing is the task of the
// examiners.

#include <cstdint>
#include <string>
#include <vector>

#include "client/message/filter_rule.h"
#include "records/log_file_format.h"
#include "tamlogctl/server/service_state.h"

namespace TamLogCtl {

enum class PipeState : std::uint8_t {
  Answers,
  Absent,  // no pipe of this name exists
  Denied,
  Blocked,  // busy all the time: a client opened the request pipe without the reply pipe
  Silent,   // opens, but does not answer in time
  Failing,  // opens, and breaks the exchange off
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
  PipeState pipe = PipeState::Absent;

  bool settingsKnown = false;
  std::uint32_t requestedCapacity = 0;
  std::uint32_t pollMs = 0;
  std::uint32_t saveSeconds = 0;
  std::uint32_t typeMask = 0;
  std::string logFile;
  bool fileKnown = false;
  std::uint64_t fileBytes = 0;

  bool filtersKnown = false;
  std::vector<TamLogClient::FilterEntry> filters;
  std::size_t longestStoredFilter =
      0;                             // bytes, as stored in the registry: seen without a request to the server
  std::size_t storedPathLength = 0;  // the same of the log file's path

  std::uint32_t mappingError = 0;  // system error codes
  std::uint32_t objectError = 0;   // the first one of an event, or of the header's writable page
  std::string objectName;          // the object of that error
  bool mapped = false;             // all objects could be opened, and `log` was observed
  std::uint64_t viewBytes = 0;     // whole pages
  std::uint32_t pageBytes = 4096;
  LogWatch log;

  bool readKnown = false;  // one read was tried
  bool readFailed = false;
  std::string readProblem;
  std::uint64_t holdMicroseconds = 0;  // how long the read held read access
};

enum class FindingState : std::uint8_t { Ok, Warning, Failure };

struct Finding {
  std::string check;  // one word for programs; never changes
  FindingState state = FindingState::Ok;
  std::string found;
  std::string fix;  // what to do; empty when the state is Ok
};

// Returns one finding for each check, in the order of the checks.
std::vector<Finding> Diagnose(const Observations& seen);

// Returns whether a reader died or hangs while it holds read access: the next flush waits for it without
// limit.
bool ReaderIsStuck(const Observations& seen);

}  // namespace TamLogCtl
