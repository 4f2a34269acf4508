#include "client/file/log_file_image.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "client/file/file_path.h"
#include "client/file/system_file.h"
#include "client/log/ring.h"

namespace TamLogClient {

LogFileImage::LogFileImage(std::string_view fileBytes) : bytes(fileBytes) {
  // A view of no bytes may have a null pointer.
  if (!bytes.empty()) std::memcpy(&header, bytes.data(), std::min(bytes.size(), sizeof(header)));
}

LockNames LogFileImage::Names() const {
  LockNames names{};
  if (HasHead()) std::memcpy(&names, bytes.data() + kLockNamesOffset, sizeof(names));
  return names;
}

bool LogFileImage::HeaderIsSound() const {
  return HasHead() && RingIsSound(header);
}

std::uint64_t LogFileImage::SlotsThere() const {
  return HasHead() ? (bytes.size() - kSlotsOffset) / sizeof(LogMessage) : 0;
}

LogMessage LogFileImage::At(std::uint64_t offset) const {
  LogMessage message{};
  if (offset < bytes.size()) {
    const auto there = std::min<std::uint64_t>(sizeof(message), bytes.size() - offset);
    std::memcpy(&message, bytes.data() + offset, static_cast<std::size_t>(there));
  }
  return message;
}

std::vector<std::uint32_t> LogFileImage::RingSlots() const {
  return HeaderIsSound() ? TamLogClient::RingSlots(header, SlotsThere()) : std::vector<std::uint32_t>{};
}

std::optional<std::uint64_t> LogFileImage::SlotAtOffset(std::uint64_t offset) {
  if (offset < kSlotsOffset || (offset - kSlotsOffset) % sizeof(LogMessage) != 0) return std::nullopt;
  return (offset - kSlotsOffset) / sizeof(LogMessage);
}

std::string ImageOf(const LogSnapshot& snapshot) {
  std::string bytes(LogFileSize(snapshot.slots.size()), '\0');
  std::memcpy(bytes.data(), &snapshot.header, sizeof(snapshot.header));
  if (!snapshot.slots.empty()) {
    std::memcpy(bytes.data() + kSlotsOffset, snapshot.slots.data(),
                snapshot.slots.size() * sizeof(LogMessage));
  }
  return bytes;
}

FileStatus ReadFileBytes(const std::string& path, std::string& bytes) {
  bytes.clear();
  const std::filesystem::path name = PathOf(path);
  std::error_code error;
  std::ifstream file;
  if (const FileStatus status = OpenForReading(path, file); status != Status::Ok) return status;
  if (std::filesystem::is_fifo(name, error)) {
    constexpr std::size_t kChunk = std::size_t{1} << 20U;
    while (file) {  // a pipe has no size before its end
      const std::size_t before = bytes.size();
      bytes.resize(before + kChunk);
      file.read(bytes.data() + before, static_cast<std::streamsize>(kChunk));
      bytes.resize(before + static_cast<std::size_t>(file.gcount()));
    }
    return file.bad() ? LastFileError() : FileStatus();
  }
  const std::uintmax_t size = std::filesystem::file_size(name, error);
  if (error) return FileStatusOf(error);
  bytes.resize(static_cast<std::size_t>(size));
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return file.bad() ? LastFileError() : FileStatus();
}

bool IsSameFile(const std::string& left, const std::string& right) {
  std::error_code error;
  return left == right || std::filesystem::equivalent(PathOf(left), PathOf(right), error);
}

}  // namespace TamLogClient
