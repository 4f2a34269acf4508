#include "client/file/log_file_image.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "client/file/file_path.h"

namespace TamLogClient {

LogFileImage::LogFileImage(std::string_view fileBytes) : bytes(fileBytes) {
  // No bytes may have no address either.
  if (!bytes.empty()) std::memcpy(&header, bytes.data(), std::min(bytes.size(), sizeof(header)));
}

LockNames LogFileImage::Names() const {
  LockNames names{};
  if (HasHead()) std::memcpy(&names, bytes.data() + kLockNamesOffset, sizeof(names));
  return names;
}

bool LogFileImage::HeaderIsSound() const {
  return HasHead() && header.messageCount >= 0 && header.nextSlot >= 0 &&
         header.messageCount <= header.maxMessages && header.nextSlot < header.maxMessages;
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
  std::vector<std::uint32_t> slots;
  if (!HeaderIsSound()) return slots;
  const auto there = static_cast<std::int64_t>(SlotsThere());
  const auto add = [&slots, there](std::int64_t from, std::int64_t to) {
    for (std::int64_t slot = from; slot < std::min(to, there); ++slot)
      slots.push_back(static_cast<std::uint32_t>(slot));
  };
  const std::int64_t first = std::int64_t{header.nextSlot} - header.messageCount;
  if (first < 0) add(first + header.maxMessages, header.maxMessages);
  add(std::max<std::int64_t>(first, 0), header.nextSlot);
  return slots;
}

std::size_t FallingStretch(const std::vector<std::uint64_t>& keys) {
  std::size_t end = 0;
  bool falls = false;
  while (end + 1 < keys.size() && keys[end] >= keys[end + 1]) {
    falls = falls || keys[end] > keys[end + 1];
    ++end;
  }
  return falls ? end + 1 : 0;
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

Status ReadFileBytes(const std::string& path, std::string& bytes) {
  bytes.clear();
  const std::filesystem::path name = PathOf(path);
  std::error_code error;
  std::ifstream file;
  if (const Status status = OpenForReading(path, file); status != Status::Ok) return status;
  if (std::filesystem::is_fifo(name, error)) {
    constexpr std::size_t kChunk = std::size_t{1} << 20U;
    while (file) {  // a pipe has no size before its end
      const std::size_t before = bytes.size();
      bytes.resize(before + kChunk);
      file.read(bytes.data() + before, static_cast<std::streamsize>(kChunk));
      bytes.resize(before + static_cast<std::size_t>(file.gcount()));
    }
    return file.bad() ? Status::SystemError : Status::Ok;
  }
  const std::uintmax_t size = std::filesystem::file_size(name, error);
  if (error) return Status::SystemError;
  bytes.resize(static_cast<std::size_t>(size));
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return file.bad() ? Status::SystemError : Status::Ok;
}

bool IsSameFile(const std::string& left, const std::string& right) {
  std::error_code error;
  return left == right || std::filesystem::equivalent(PathOf(left), PathOf(right), error);
}

}  // namespace TamLogClient
