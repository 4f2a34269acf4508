#pragma once

// Reads a copied log file piece by piece in ring order, without holding all of it. Only files whose header
// and size are right can be scanned; ReadLogFile reads the others and reports the defect.
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

#include "client/log/ring.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// Properties of all messages of a file.
struct LogFileSurvey {
  // Each message is shown to be older than the next one, so that ring order is the order of time and arrival.
  bool inOrder = true;
  std::size_t damaged = 0;   // messages that break a rule of the format
  std::size_t doubtful = 0;  // slots that do not look like messages: slots may be elsewhere in the file

  std::optional<ArrivalStamp> first;
  std::optional<ArrivalStamp> last;

  // Adds the next message of the ring.
  void Add(const LogMessage& message);

  // Adds the messages of another survey, which follow in the ring.
  void Add(const LogFileSurvey& next);
};

class LogFileScan {
 public:
  // Returns false when the file at `path` (UTF-8) cannot be read or its header or size is not right.
  bool Open(const std::string& path);

  const LogFileHeader& Header() const { return header; }
  std::uint32_t MessageCount() const { return static_cast<std::uint32_t>(header.messageCount); }

  // Fills `to` with the messages from `position` of the ring order on; position 0 is the oldest slot. Returns
  // false when the file has become shorter.
  bool Read(std::uint32_t position, std::span<LogMessage> to);

  // Calls `take` for every message from position `from` of the ring order on, until it returns false. A
  // thread of its own reads ahead, so this holds a few MB of messages. Returns false when the file has become
  // shorter; `take` has then seen only some of them.
  bool ForEach(const std::function<bool(const LogMessage&)>& take, std::uint32_t from = 0);

  // Examines every message, on up to four processors at once: with two, in half the time of ForEach. Returns
  // nothing when the file has become shorter or was replaced.
  std::optional<LogFileSurvey> Survey() const;

 private:
  std::string place;
  std::ifstream file;
  LogFileHeader header{};
};

}  // namespace TamLogClient
