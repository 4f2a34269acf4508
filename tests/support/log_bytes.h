#pragma once

// Converts between a log file's bytes and its records. Needs the records only.

#include <cstring>
#include <string>
#include <vector>

#include "records/log_file_format.h"

namespace TestSupport {

// Returns a file with this header, these lock names and these slots. Checks nothing: tests also build damaged
// files with it.
inline std::string LogFileBytes(const LogFileHeader& header, const std::vector<LogMessage>& slots,
                                const LockNames& names = {}) {
  std::string bytes(LogFileSize(slots.size()), '\0');
  std::memcpy(bytes.data(), &header, sizeof(header));
  std::memcpy(bytes.data() + kLockNamesOffset, &names, sizeof(names));
  if (!slots.empty())
    std::memcpy(bytes.data() + kSlotsOffset, slots.data(), slots.size() * sizeof(LogMessage));
  return bytes;
}

// Returns the header at the start of `bytes`, filled with zeros where they end.
inline LogFileHeader HeaderOf(const std::string& bytes) {
  LogFileHeader header{};
  bytes.copy(reinterpret_cast<char*>(&header), sizeof(header));
  return header;
}

// Returns the complete slots in `bytes`, valid or not, in their order.
inline std::vector<LogMessage> SlotsOf(const std::string& bytes) {
  if (bytes.size() < kSlotsOffset) return {};
  std::vector<LogMessage> slots((bytes.size() - kSlotsOffset) / sizeof(LogMessage));
  if (!slots.empty())
    std::memcpy(slots.data(), bytes.data() + kSlotsOffset, slots.size() * sizeof(LogMessage));
  return slots;
}

}  // namespace TestSupport
