#pragma once

// The shared log file as a reader in another process sees it: the mapping, the three events whose names the
// file contains, and read access as docs/read_access.md describes it. Use from one thread.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "records/log_file_format.h"
#include "tests/system/platform.h"

class SharedLog {
 public:
  // Returns null while no running server shares a file.
  static std::unique_ptr<SharedLog> TryOpen();
  ~SharedLog();
  SharedLog(const SharedLog&) = delete;
  SharedLog& operator=(const SharedLog&) = delete;

  // Reads the flag without read access: a reader that sees false has to release the file, otherwise it blocks
  // the server's stop.
  bool ServerRunning() const;

  // Returns false when the writer did not let readers in within `limit`.
  bool Enter(std::chrono::milliseconds limit);
  void Leave();

  // The functions below require read access.
  LogFileHeader Header() const;
  // Returns the messages from the newest to the oldest whose sequence is not below `fromSequence`; stops at
  // the first below.
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
