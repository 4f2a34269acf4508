#pragma once

// A file that rotates: once it is large or old enough it is renamed to NAME.1, and a new file NAME is begun.
// The former NAME.1 becomes NAME.2, and so on. A message is never split between two files. One thread at a
// time may use an object.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "client/file/file_status.h"
#include "client/file/system_file.h"

namespace TamLogCtl {

struct RotationLimits {
  std::optional<std::uint64_t> bytes;    // a file exceeds it only by a single message that is larger
  std::optional<std::int64_t> periodMs;  // a new file at each multiple of this period by the clock
  std::optional<std::uint32_t> keep;     // rotated files to keep, at least 1; empty: all

  bool Any() const { return bytes || periodMs; }
};

// Sets the limit that `text` names: bytes as "500K", "10M", "10MB" or "1G", or a period of at least a second
// as "90s", "15min", "1h", "1d" or "1w". Anything else is refused: returns what is wrong and what is
// expected. That includes "10m", which means megabytes to some and minutes to others.
std::string TakeRotationLimit(std::string_view text, RotationLimits& limits);

// A place in one of the files: what was written after it is in the rest of that file, and in newer ones.
struct FilePlace {
  TamLogClient::FileId file;
  std::uint64_t length = 0;  // bytes of that file before the place

  bool operator==(const FilePlace&) const = default;
};

struct RotatingFileOptions {
  std::string target;         // UTF-8
  std::string head;           // written before the first message of every file
  std::string ending = "\n";  // of every message
  std::size_t unit = 1;       // the length of every message is a multiple of it
  bool replace = false;       // truncate an existing file instead of appending to it
  RotationLimits limits;

  // Called before the file of the noted place is removed because only `limits.keep` are kept. The new place
  // is before everything that was written since. False: it could not be stored, so nothing is removed.
  std::function<bool(const FilePlace&)> placeMoves = [](const FilePlace&) { return true; };
};

// What CutBack found.
enum class CutResult : std::uint8_t {
  Nothing,  // nothing was written after the place
  Cut,      // something was, and is gone
  Other,    // neither the file nor a rotated one is the file of the place
  Shorter,  // the file ends before the place
};

// Times are milliseconds of the local clock since 1970, so that periods begin at the full hour, at midnight,
// and on Monday.
class RotatingFile {
 public:
  explicit RotatingFile(RotatingFileOptions chosen) : options(std::move(chosen)) {}

  // Removes what was written after `place`, so that it can be written again: the rest of the file, and all
  // newer files. Call it before Open. A call that was interrupted can be repeated.
  TamLogClient::FileStatus CutBack(const FilePlace& place, CutResult& result);

  // Returns whether anything was written after `place`.
  bool GoesOn(const FilePlace& place) const;

  // Returns whether what was written after `place` begins with `text`, or is the begin of it.
  bool GoesOnWith(const FilePlace& place, std::string_view text) const;

  // Opens the file for appending. A file that has another head, or that ends within a message because its
  // writer was killed, is rotated first. Returns NotAFile for a directory, and for a device if there is a
  // limit: neither can be renamed.
  TamLogClient::FileStatus Open(std::int64_t nowMs);

  // Returns the place after all that was flushed; the disk holds everything before it. CutBack of a later run
  // finds it until Note is called again. Nothing for a device, or when the disk failed (see Failure).
  std::optional<FilePlace> Note();

  // Appends one whole message; it may be buffered until Flush. Returns false once a write has failed; the
  // file then ends with its last whole message.
  bool Append(std::string_view message, std::int64_t nowMs);

  // Writes the buffered messages, and rotates the file if its period is over. Returns false as above.
  bool Flush(std::int64_t nowMs);

  bool Failed() const { return failed; }

  // Returns why a write failed.
  const TamLogClient::FileStatus& Failure() const { return failure; }

  // Returns whether the file is due but cannot be rotated: another program has it open, or the oldest file,
  // which is to be removed. Messages are still appended; the rotation is repeated once a second.
  bool RotationBlocked() const { return blocked; }

  // Returns which file the system refuses to rename or to remove, and its reason: "log.1: access denied".
  const std::string& Blocker() const { return blocker; }

  std::uint64_t RotatedFiles() const { return rotated; }

 private:
  bool IsDue(std::size_t more, std::int64_t nowMs) const;
  bool EndsWithAMessage() const;
  bool WritePending();
  bool Fail(TamLogClient::FileStatus status);
  bool Rotate(std::int64_t nowMs);
  TamLogClient::FileStatus Shift();
  bool MovePlaceFrom(std::uint32_t number);
  TamLogClient::FileStatus Rename(const std::string& from, const std::string& to);
  TamLogClient::FileStatus Block(const std::string& name, TamLogClient::FileStatus status);
  void RemoveBeyondKeep() const;
  std::optional<std::uint32_t> NumberOf(const TamLogClient::FileId& id) const;
  std::string Numbered(std::uint32_t number) const;
  std::int64_t PeriodOf(std::int64_t ms) const;
  TamLogClient::FileStatus Begin(bool isNew);

  RotatingFileOptions options;
  TamLogClient::SystemFile file;
  FilePlace noted;
  TamLogClient::FileStatus failure;
  std::string blocker;
  TamLogClient::FileStatus blockStatus;
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
