#pragma once

// Looks at the shared log from outside, for a diagnosis: which of its objects are there, what states they are
// in, and whether anything moves. Takes no read access, and touches nothing but the header lock, which is
// taken and given back at once. One thread.

#include <array>
#include <cstdint>
#include <string>

#include "client/live/handle.h"
#include "records/log_file_format.h"

namespace TamLogCtl {

// A system error code of 0 means that the object could be opened.
struct LogObjects {
  std::uint32_t mappingError = 0;
  std::uint32_t writableError = 0;             // of the page of the header
  std::array<std::uint32_t, 3> eventErrors{};  // header lock, read-wait, write-wait
  std::array<std::string, 3> eventNames;       // as the log tells them
  std::uint64_t viewBytes = 0;                 // whole pages
  std::uint32_t pageBytes = 0;
};

// What a watch of some time saw. "All the time" holds when every one of the looks saw it.
struct LogWatch {
  LogFileHeader header{};  // at the last look
  std::uint32_t watchedMs = 0;
  bool lockTaken = false;       // the header lock could not be had for a second
  bool readersInside = false;   // write-wait reset and readCount above 0, all the time
  bool countPassed = false;     // write-wait reset and readCount at most 0, all the time
  bool countLeft = false;       // write-wait signalled and readCount not 0, all the time
  bool readersKeptOut = false;  // read-wait reset, all the time
  bool writerWaits = false;     // read-wait is reset at the last look
  bool moved = false;           // readCount or changeCount was different at some look
};

class LogExaminer {
 public:
  LogExaminer() = default;
  ~LogExaminer() { Close(); }
  LogExaminer(const LogExaminer&) = delete;
  LogExaminer& operator=(const LogExaminer&) = delete;

  // Opens what can be opened; what cannot is told in the result. On failure nothing stays open.
  LogObjects Open(const std::string& mapName = kFileMapName);
  void Close();

  // After a good Open. Looks until everything is at rest, at most `milliseconds`. A server that closes the
  // log meanwhile ends the watch (serverRunning is 0 then, and all is closed).
  LogWatch Watch(std::uint32_t milliseconds);

  // Signals the header lock, once: its holder is dead. A person's decision only.
  bool FreeHeaderLock();

  // Forgets the readers inside: sets readCount to 0 and signals write-wait, under the header lock, if they
  // are still as `seen`. A person's decision only: a reader that is alive may be written under. False when
  // something moved meanwhile or the header lock is not to be had.
  bool ForgetReaders(const LogFileHeader& seen);

 private:
  bool TakeLock(std::uint32_t milliseconds) const;
  bool CopyHeader(LogFileHeader& header) const;

  TamLogClient::Handle mapping;
  std::array<TamLogClient::Handle, 3> events;
  unsigned char* headerView = nullptr;
  const unsigned char* fileView = nullptr;
};

}  // namespace TamLogCtl
