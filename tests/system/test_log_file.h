#pragma once

// The log file as a value: created by tests for the server, or read back from the disk without any of the
// server's code. Reading acquires no read access, so the result is meaningful only while nobody writes.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "records/log_file_format.h"

struct TestLogFile {
  LogFileHeader header{};
  LockNames names{};
  std::vector<LogMessage> slots;

  // Returns a sound, empty file.
  static TestLogFile Empty(std::int32_t capacity);
  // Throws std::runtime_error when the file is too short for a header or has half a slot.
  static TestLogFile Read(const std::string& path);
  // Reads the header only, for frequent reads; returns nothing when the file does not exist.
  static std::optional<LogFileHeader> ReadHeader(const std::string& path);
  void Write(const std::string& path) const;

  // Puts a message where the server would put the next one.
  void Append(const LogMessageBody& body);
  // Returns the messages along the ring. Throws std::runtime_error when the header leads out of the file.
  std::vector<LogMessage> NewestFirst() const;
  // Returns the slot of the i-th newest message, for tests that damage it.
  LogMessage& Newest(std::int32_t i);
};

// Returns the texts of the messages in their order.
std::vector<std::string> Texts(const std::vector<LogMessage>& messages);
