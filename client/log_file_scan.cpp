#include "client/log_file_scan.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <vector>

#include "client/file_path.h"
#include "client/log_tail.h"

namespace TamLogClient {

namespace {

bool ReadAt(std::ifstream& file, std::uint64_t offset, void* to, std::size_t bytes) {
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(static_cast<char*>(to), static_cast<std::streamsize>(bytes));
  return file.good();
}

bool HeaderFits(const LogFileHeader& header, std::uint64_t bytes) {
  return header.maxMessages > 0 && header.messageCount >= 0 && header.messageCount <= header.maxMessages &&
         header.nextSlot >= 0 && header.nextSlot < header.maxMessages &&
         bytes == LogFileSize(static_cast<std::uint64_t>(header.maxMessages));
}

}  // namespace

bool LogFileScan::Open(const std::string& path) {
  std::error_code error;
  const auto bytes = std::filesystem::file_size(PathOf(path), error);
  file.open(PathOf(path), std::ios::binary);
  return !error && file.is_open() && ReadAt(file, 0, &header, sizeof(header)) && HeaderFits(header, bytes);
}

bool LogFileScan::Read(std::uint32_t position, std::span<LogMessage> to) {
  // A run of positions is at most two runs of slots.
  while (!to.empty()) {
    const std::uint32_t slot = SlotAt(header, position);
    const std::size_t run = std::min(to.size(), static_cast<std::size_t>(header.maxMessages) - slot);
    if (!ReadAt(file, kSlotsOffset + std::uint64_t{slot} * sizeof(LogMessage), to.data(),
                run * sizeof(LogMessage)))
      return false;
    position += static_cast<std::uint32_t>(run);
    to = to.subspan(run);
  }
  return true;
}

bool LogFileScan::ForEach(const std::function<bool(const LogMessage&)>& take) {
  constexpr std::uint32_t kChunk = 512;
  std::vector<LogMessage> chunk;
  for (std::uint32_t at = 0; at < MessageCount(); at += kChunk) {
    chunk.resize(std::min(kChunk, MessageCount() - at));
    if (!Read(at, chunk)) return false;
    for (const LogMessage& message : chunk) {
      if (!take(message)) return true;
    }
  }
  return true;
}

}  // namespace TamLogClient
