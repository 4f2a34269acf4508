#pragma once

// Writes files so that no other program ever sees half of one: into a temporary file in the same directory,
// which is renamed when it is complete.

#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>

#include "client/message/status.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// A file that appears complete or not at all. One thread at a time.
class AtomicFile {
 public:
  AtomicFile() = default;
  ~AtomicFile();  // removes the temporary file unless it was committed
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  // Opens a temporary file for `path` (UTF-8). NotAFile for a directory or a device; Exists for a file that
  // may not be overwritten; NotFound when the directory does not exist.
  Status Open(const std::string& path, bool overwrite);

  // Returns false once a write has failed.
  bool Write(std::string_view bytes);

  // Renames the file to its path; unless the result is Ok, nothing is left of it. Exists when another program
  // has meanwhile written a file of this name that may not be overwritten.
  Status Commit();

 private:
  std::string target;
  std::string temporary;  // empty: nothing to remove
  bool mayOverwrite = false;
  std::ofstream file;
};

// Returns message `index`, from 0 for the oldest. The message must not break a rule of the format.
using MessageAt = std::function<LogMessage(std::uint64_t index)>;

// Called before each slot is written; false ends the writing.
using GoOn = std::function<bool(std::uint64_t slot)>;

// Writes a log file of `capacity` slots with `count` messages, which are in time order, oldest first. They
// are numbered from 0. Returns the statuses of AtomicFile; BadValue when the messages do not fit, or when
// one of them would make a server empty the file; Interrupted when `goOn` returned false. Unless the result
// is Ok, nothing is left of the file.
Status WriteLogFile(const std::string& path, std::uint64_t count, const MessageAt& messageAt,
                    std::uint32_t capacity, bool overwrite, const GoOn& goOn = {});

}  // namespace TamLogClient
