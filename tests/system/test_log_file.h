#pragma once

// The log file as a value: made by tests and given to the server, or read back from the disk without any of
// the server's code. Reading takes no read access, so the result means something only while nobody writes.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "records/log_file_format.h"

struct TestLogFile {
  LogFileHeader header{};
  LockNames names{};
  std::vector<LogMessage> slots;

  // A sound, empty file.
  static TestLogFile Empty(std::int32_t capacity);
  // Throws std::runtime_error when the file is too short for a header or has half a slot.
  static TestLogFile Read(const std::string& path);
  // The header alone, for looking often; nothing when there is no file.
  static std::optional<LogFileHeader> ReadHeader(const std::string& path);
  void Write(const std::string& path) const;

  // Puts a message where the server would put the next one.
  void Append(const LogMessageBody& body);
  // The messages along the ring. Throws std::runtime_error when the header leads out of the file.
  std::vector<LogMessage> NewestFirst() const;
  // The slot of the i-th newest message, for tests that damage it.
  LogMessage& Newest(std::int32_t i);
};

// The texts of messages, in their order.
std::vector<std::string> Texts(const std::vector<LogMessage>& messages);
