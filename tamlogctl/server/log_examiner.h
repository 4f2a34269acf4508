#pragma once

// Examines the shared log from outside, for a diagnosis: which of its objects exist, what states they are in,
// and whether anything changes. It only looks: the log is mapped read-only, and the events are opened with
// rights that cannot change them, so a process that is killed here leaves no trace. tamlogctl/server/
// log_unsticker.h changes things. Use it from one thread.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "client/live/handle.h"
#include "records/log_file_format.h"
#include "tamlogctl/server/doctor_findings.h"

namespace TamLogCtl {

// Errors are system error codes; 0 means that the object could be opened.
struct LogObjects {
  std::uint32_t mappingError = 0;
  std::array<std::uint32_t, 3> eventErrors{};  // header lock, read-wait, write-wait
  // Of opening the same events with the right to change them, which programs need that take read access.
  std::array<std::uint32_t, 3> changeErrors{};
  std::string
      foreignEvent;  // the first event that the log names and that is not the server's; none is open then
  std::uint64_t viewBytes = 0;  // whole pages
  std::uint32_t pageBytes = 0;
};

// Returns those of the server's four names (mapping and events) that exist, whoever made them.
std::vector<std::string> ServerNamesInUse();

class LogExaminer {
 public:
  LogExaminer() = default;
  ~LogExaminer() { Close(); }
  LogExaminer(const LogExaminer&) = delete;
  LogExaminer& operator=(const LogExaminer&) = delete;

  // Opens the server's objects. When one of them fails, nothing stays open, and the result has the errors.
  LogObjects Open();
  void Close();

  // Samples the log repeatedly until nobody is inside and nobody waits, for at most `milliseconds`; a header
  // lock that is held is watched for a second before. A server that closes the log meanwhile ends the watch
  // without a result, and a log that is being opened or closed is watched for a second at most: serverRunning
  // is 0 then, and everything is closed. Legal after Open without errors.
  LogWatch Watch(std::uint32_t milliseconds);

 private:
  bool LockStaysHeld() const;
  bool CopyHeader(LogFileHeader& header) const;
  bool CopyWholeHeader(LogFileHeader& header) const;
  bool MapView(LogObjects& found);
  bool OpenEvents(LogObjects& found);

  TamLogClient::Handle mapping;
  std::array<TamLogClient::Handle, 3> events;
  const unsigned char* fileView = nullptr;
};

}  // namespace TamLogCtl
