#pragma once

// Reads a copy of the log file piece by piece, in the order of the ring, for those who need not hold all of
// it. Only files whose header and size are right can be scanned; ReadLogFile reads the others, and says what
// is wrong.
//
// A scan belongs to one thread at a time. The file is read with ordinary reads and stays open, so that a
// second pass sees the same file.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "records/log_file_format.h"

namespace TamLogClient {

// What the messages of a file are like, seen together.
struct LogFileSurvey {
  bool inTimeOrder = true;  // none is older than the one before it
  std::size_t damaged = 0;  // break a rule of the format
};

class LogFileScan {
 public:
  // False when the file at `path` (UTF-8) cannot be read or its header or size is not right.
  bool Open(const std::string& path);

  const LogFileHeader& Header() const { return header; }
  std::uint32_t MessageCount() const { return static_cast<std::uint32_t>(header.messageCount); }

  // Fills `to` with the messages from `position` of the ring order on, which begins with the oldest slot.
  // False when the file has become shorter.
  bool Read(std::uint32_t position, std::span<LogMessage> to);

  // Hands over every message from position `from` of the ring order on, until `take` returns false. Holds a
  // few MB of them: a thread of its own reads ahead while `take` sees the last. False when the file has
  // become shorter; then some have been handed over.
  bool ForEach(const std::function<bool(const LogMessage&)>& take, std::uint32_t from = 0);

  // Looks at every message, on all processors at once (four at most): with two, in half the time of ForEach.
  // Nothing when the file has become shorter or another one stands in its place.
  std::optional<LogFileSurvey> Survey() const;

 private:
  std::string place;
  std::ifstream file;
  LogFileHeader header{};
};

}  // namespace TamLogClient
