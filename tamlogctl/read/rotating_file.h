#pragma once

// A file that is written without end: when it has become large or old enough it is finished, put aside under
// the name NAME.1, and begun anew. What was NAME.1 becomes NAME.2, and so on. A message is never spread over
// two files. One thread at a time.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "client/message/status.h"

namespace TamLogCtl {

struct RotationLimits {
  std::optional<std::uint64_t> bytes;    // a file grows larger only if its first message does so by itself
  std::optional<std::int64_t> periodMs;  // a new file at each turn of this period by the clock
  std::optional<std::uint32_t> keep;     // so many files put aside, one at least; nothing: all of them

  bool Any() const { return bytes || periodMs; }
};

// Takes one limit: bytes as "500K", "10M" or "1G", a period as "90s", "15m", "1h", "1d" or "1w". False for
// anything else.
bool TakeRotationLimit(std::string_view text, RotationLimits& limits);

struct RotatingFileOptions {
  std::string target;         // UTF-8
  std::string head;           // in front of the first message of every file
  std::string ending = "\n";  // of every message
  std::size_t unit = 1;       // every message's length is a multiple of it
  bool replace = false;       // begin with an empty file, not behind what is there
  RotationLimits limits;
};

// Times are milliseconds of the local clock since 1970, by which periods begin with the full hour, with
// midnight, and with Monday.
class RotatingFile {
 public:
  explicit RotatingFile(RotatingFileOptions chosen) : options(std::move(chosen)) {}

  // Goes on behind what is there. A file that has another head, or that ends within a message because its
  // writer was killed, is put aside first. NotAFile for a directory, and for a
  // device when there is a limit.
  TamLogClient::Status Open(std::int64_t nowMs);

  // Takes one whole message, which may be held back until Flush. False once a write has failed; the file
  // then ends with its last whole message.
  bool Append(std::string_view message, std::int64_t nowMs);

  // Hands everything to the system, and puts the file aside when its period is over. False as above.
  bool Flush(std::int64_t nowMs);

  bool Failed() const { return failed; }

  // The file is due and cannot be put aside: another program has it open, or the oldest one that is to be
  // removed. It grows on; putting aside is tried again once a second.
  bool HeldUp() const { return heldUp; }

  std::uint64_t FilesPutAside() const { return putAside; }

 private:
  bool IsDue(std::size_t more, std::int64_t nowMs) const;
  bool EndsWithAMessage() const;
  bool WritePending();
  bool PutAside(std::int64_t nowMs);
  bool Shift() const;
  bool Rename(const std::string& from, const std::string& to) const;
  void RemoveBeyondKeep() const;
  std::string Numbered(std::uint32_t number) const;
  std::int64_t PeriodOf(std::int64_t ms) const;
  bool Begin(bool empty);

  RotatingFileOptions options;
  std::ofstream file;
  std::string pending;
  std::uint64_t size = 0;     // with what is pending
  std::uint64_t written = 0;  // whole messages, in the system's hands
  std::int64_t period = 0;    // of the file's first message
  std::int64_t heldUpAt = 0;
  std::uint64_t putAside = 0;
  bool regular = true;
  bool heldUp = false;
  bool failed = false;
};

}  // namespace TamLogCtl
