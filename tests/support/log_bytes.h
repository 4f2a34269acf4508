#pragma once

// A log file as bytes. Needs the records only.

#include <cstring>
#include <string>
#include <vector>

#include "records/log_file_format.h"

namespace TestSupport {

// A file with this header, these lock names and these slots. Nothing is checked: tests make damaged files of
// it too.
inline std::string LogFileBytes(const LogFileHeader& header, const std::vector<LogMessage>& slots,
                                const LockNames& names = {}) {
  std::string bytes(LogFileSize(slots.size()), '\0');
  std::memcpy(bytes.data(), &header, sizeof(header));
  std::memcpy(bytes.data() + kLockNamesOffset, &names, sizeof(names));
  if (!slots.empty())
    std::memcpy(bytes.data() + kSlotsOffset, slots.data(), slots.size() * sizeof(LogMessage));
  return bytes;
}

// The header at the start of `bytes`; zeros where they end.
inline LogFileHeader HeaderOf(const std::string& bytes) {
  LogFileHeader header{};
  bytes.copy(reinterpret_cast<char*>(&header), sizeof(header));
  return header;
}

// The whole slots in `bytes`, valid or not, in their order.
inline std::vector<LogMessage> SlotsOf(const std::string& bytes) {
  if (bytes.size() < kSlotsOffset) return {};
  std::vector<LogMessage> slots((bytes.size() - kSlotsOffset) / sizeof(LogMessage));
  if (!slots.empty())
    std::memcpy(slots.data(), bytes.data() + kSlotsOffset, slots.size() * sizeof(LogMessage));
  return slots;
}

}  // namespace TestSupport
