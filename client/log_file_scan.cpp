#include "client/log_file_scan.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <future>
#include <system_error>
#include <vector>

#include "client/file_path.h"
#include "client/log_tail.h"

namespace TamLogClient {

namespace {

constexpr std::uint32_t kChunk = 4096;  // messages read at once: two megabytes

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

bool LogFileScan::ForEach(const std::function<bool(const LogMessage&)>& take, std::uint32_t from) {
  const auto read = [this](std::uint32_t at, std::vector<LogMessage>& to) {
    to.resize(std::min(kChunk, MessageCount() - at));
    return Read(at, to);
  };
  if (from >= MessageCount()) return true;
  std::vector<LogMessage> chunk;
  std::vector<LogMessage> next;
  if (!read(from, chunk)) return false;
  while (true) {
    from += static_cast<std::uint32_t>(chunk.size());
    std::future<bool> coming;  // its end waits for the thread, which writes to `next`
    if (from < MessageCount()) coming = std::async(read, from, std::ref(next));
    for (const LogMessage& message : chunk) {
      if (!take(message)) return true;
    }
    if (!coming.valid()) return true;
    if (!coming.get()) return false;
    chunk.swap(next);
  }
}

}  // namespace TamLogClient
