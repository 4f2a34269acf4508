#pragma once

// From what was observed about a server to findings: what is wrong, and how it is mended. The observing is
// done elsewhere; here is the judgement alone.

#include <cstdint>
#include <string>
#include <vector>

#include "client/message/filter_rule.h"
#include "records/log_file_format.h"

namespace TamLogCtl {

enum class ServiceState : std::uint8_t { Unknown, NotInstalled, Denied, Stopped, Pending, Running };

enum class PipeState : std::uint8_t { Answers, Absent, Denied, Blocked, Silent, Failing };

// What stays unset was not observed, and nothing is said about it.
struct Observations {
  ServiceState service = ServiceState::Unknown;
  PipeState pipe = PipeState::Absent;

  bool settingsKnown = false;
  std::uint32_t capacityAsked = 0;
  std::uint32_t pollMs = 0;
  std::uint32_t saveSeconds = 0;
  std::uint32_t typeMask = 0;
  std::string logFile;
  bool fileKnown = false;
  std::uint64_t fileBytes = 0;

  bool filtersKnown = false;
  std::vector<TamLogClient::FilterEntry> filters;
  std::size_t longestKeptFilter = 0;  // in the registry, where it can be looked at without asking the server
  std::size_t keptPathLength = 0;     // the same of the log file's path

  std::uint32_t mappingError = 0;
  std::uint32_t objectError = 0;  // the first error of an event, or of the header's writable page
  std::string objectName;         // and what it concerns
  bool mapped = false;            // all objects are open; what follows was seen
  std::uint64_t viewBytes = 0;    // whole pages
  std::uint32_t pageBytes = 4096;
  LogFileHeader header{};
  std::uint32_t watchedMs = 0;
  bool lockTaken = false;
  bool readersInside = false;   // all the time
  bool countPassed = false;     // all the time
  bool countLeft = false;       // all the time
  bool readersKeptOut = false;  // all the time
  bool moved = false;           // readCount or changeCount moved meanwhile

  bool readKnown = false;  // one read was made
  bool readFailed = false;
  std::string readProblem;
  std::uint64_t holdMicroseconds = 0;
};

enum class FindingState : std::uint8_t { Ok, Warning, Failure };

struct Finding {
  std::string check;  // one word for programs, never changed
  FindingState state = FindingState::Ok;
  std::string found;  // what was seen
  std::string mend;   // what to do; empty when all is well
};

// One finding a check, in the order of the checks.
std::vector<Finding> Diagnose(const Observations& seen);

// A reader died or hangs inside: nobody moves, and the next flush waits, or waits already, without limit.
bool ReaderIsStuck(const Observations& seen);

}  // namespace TamLogCtl
