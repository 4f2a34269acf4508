#pragma once

// Examines the shared log from outside, for a diagnosis: which of its objects exist, what states they are in,
// and whether anything changes. Takes no read access; takes only the header lock, and releases it at once.
// Use it from one thread.

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
  std::uint32_t writableError = 0;             // of the page of the header
  std::array<std::uint32_t, 3> eventErrors{};  // header lock, read-wait, write-wait
  std::array<std::string, 3> eventNames;       // as the log states them
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
  // Another mapping than the server's may name events of its own.
  LogObjects Open(const std::string& mapName = kFileMapName);
  void Close();

  // Samples the log repeatedly until nobody is inside and nobody waits, for at most `milliseconds`. A server
  // that closes the log meanwhile ends the watch: serverRunning is 0 then, and everything is closed. Legal
  // after Open without errors.
  LogWatch Watch(std::uint32_t milliseconds);

  // Signals the header lock once, for a holder that died. Only the user can decide that.
  bool FreeHeaderLock();

  // Forgets the readers inside: sets readCount to 0 and signals write-wait, under the header lock. Only the
  // user can decide that: the server may then write under a reader that is alive. Returns false when
  // readCount or changeCount is no longer as in `seen`, or the header lock is not free for a second.
  bool ForgetReaders(const LogFileHeader& seen);

 private:
  bool TakeLock(std::uint32_t milliseconds) const;
  bool CopyHeader(LogFileHeader& header) const;
  bool MapViews(LogObjects& found);
  bool OpenEvents(LogObjects& found, bool ofTheServer);

  TamLogClient::Handle mapping;
  std::array<TamLogClient::Handle, 3> events;
  unsigned char* headerView = nullptr;
  const unsigned char* fileView = nullptr;
};

}  // namespace TamLogCtl
