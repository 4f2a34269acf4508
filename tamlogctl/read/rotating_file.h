#pragma once

// A file that rotates: once it is large or old enough it is renamed to NAME.1, and a new file NAME is begun.
// The former NAME.1 becomes NAME.2, and so on. A message is never split between two files. One thread at a
// time may use an object.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "client/message/status.h"

namespace TamLogCtl {

struct RotationLimits {
  std::optional<std::uint64_t> bytes;    // a file exceeds it only by a single message that is larger
  std::optional<std::int64_t> periodMs;  // a new file at each multiple of this period by the clock
  std::optional<std::uint32_t> keep;     // rotated files to keep, at least 1; empty: all

  bool Any() const { return bytes || periodMs; }
};

// Sets the limit that `text` names: bytes as "500K", "10M" or "1G", or a period of at least a second as
// "90s", "15m", "1h", "1d" or "1w". Returns false for anything else.
bool TakeRotationLimit(std::string_view text, RotationLimits& limits);

struct RotatingFileOptions {
  std::string target;         // UTF-8
  std::string head;           // written before the first message of every file
  std::string ending = "\n";  // of every message
  std::size_t unit = 1;       // the length of every message is a multiple of it
  bool replace = false;       // truncate an existing file instead of appending to it
  RotationLimits limits;
};

// Times are milliseconds of the local clock since 1970, so that periods begin at the full hour, at midnight,
// and on Monday.
class RotatingFile {
 public:
  explicit RotatingFile(RotatingFileOptions chosen) : options(std::move(chosen)) {}

  // Opens the file for appending. A file that has another head, or that ends within a message because its
  // writer was killed, is rotated first. Returns NotAFile for a directory, and for a device if there is a
  // limit: neither can be renamed.
  TamLogClient::Status Open(std::int64_t nowMs);

  // Appends one whole message; it may be buffered until Flush. Returns false once a write has failed; the
  // file then ends with its last whole message.
  bool Append(std::string_view message, std::int64_t nowMs);

  // Writes the buffered messages, and rotates the file if its period is over. Returns false as above.
  bool Flush(std::int64_t nowMs);

  bool Failed() const { return failed; }

  // Returns whether the file is due but cannot be rotated: another program has it open, or the oldest file,
  // which is to be removed. Messages are still appended; the rotation is repeated once a second.
  bool RotationBlocked() const { return blocked; }

  std::uint64_t RotatedFiles() const { return rotated; }

 private:
  bool IsDue(std::size_t more, std::int64_t nowMs) const;
  bool EndsWithAMessage() const;
  bool WritePending();
  bool Rotate(std::int64_t nowMs);
  bool Shift() const;
  bool Rename(const std::string& from, const std::string& to) const;
  void RemoveBeyondKeep() const;
  std::string Numbered(std::uint32_t number) const;
  std::int64_t PeriodOf(std::int64_t ms) const;
  bool Begin(bool empty);

  RotatingFileOptions options;
  std::ofstream file;
  std::string pending;
  std::uint64_t size = 0;      // in bytes, with what is pending
  std::uint64_t written = 0;   // bytes of whole messages that were written
  std::int64_t period = 0;     // of the file's first message
  std::int64_t blockedAt = 0;  // the last attempt
  std::uint64_t rotated = 0;
  bool regular = true;
  bool blocked = false;
  bool failed = false;
};

}  // namespace TamLogCtl
