#pragma once

// The shared log file as a reader in another process sees it: the mapping, the three events whose names stand
// in the file, and read access as docs/reader_protocol.md describes it. One thread.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "records/log_file_format.h"
#include "tests/system/platform.h"

class SharedLog {
 public:
  // Null while no running server shares a file.
  static std::unique_ptr<SharedLog> TryOpen();
  ~SharedLog();
  SharedLog(const SharedLog&) = delete;
  SharedLog& operator=(const SharedLog&) = delete;

  // Looked at without read access: a reader that sees false has to let the file go, or it keeps the server's
  // stop waiting.
  bool ServerRunning() const;

  // False when the writer did not let readers in before `limit` was over.
  bool Enter(std::chrono::milliseconds limit);
  void Leave();

  // Under read access only:
  LogFileHeader Header() const;
  // The messages from the newest to the oldest whose sequence is not below `fromSequence`; stops at the first
  // below.
  std::vector<LogMessage> NewestFirst(const LogFileHeader& header, std::uint64_t fromSequence) const;

 private:
  SharedLog(OwnedHandle mappingHandle, std::byte* viewStart);
  bool OpenEvents();

  OwnedHandle mapping;
  std::byte* view;
  std::size_t viewSize = 0;
  OwnedHandle headerLock;
  OwnedHandle readWait;
  OwnedHandle writeWait;
};
