#include "client/file/log_file_image.h"

#include <cstring>
#include <filesystem>
#include <system_error>

#include "client/file/file_path.h"
#include "client/file/system_file.h"
#include "client/log/ring.h"

namespace TamLogClient {

LogFileImage::LogFileImage(FileBytes& file) : bytes(&file) {
  bytes->Copy(0, &header, sizeof(header));
}

LogFileImage::LogFileImage(std::string_view fileBytes)
    : ofMemory(std::make_shared<FileBytes>(fileBytes)), bytes(ofMemory.get()) {
  bytes->Copy(0, &header, sizeof(header));
}

LockNames LogFileImage::Names() const {
  LockNames names{};
  if (HasHead()) bytes->Copy(kLockNamesOffset, &names, sizeof(names));
  return names;
}

std::string_view LogFileImage::View(std::uint64_t offset, std::size_t count) const {
  return bytes->View(offset, count);
}

bool LogFileImage::HeaderIsSound() const {
  return HasHead() && RingIsSound(header);
}

bool LogFileImage::SizeFits() const {
  return HeaderIsSound() && Size() == LogFileSize(static_cast<std::uint64_t>(header.maxMessages));
}

std::uint64_t LogFileImage::SlotsThere() const {
  return HasHead() ? (Size() - kSlotsOffset) / sizeof(LogMessage) : 0;
}

LogMessage LogFileImage::At(std::uint64_t offset) const {
  LogMessage message{};
  const std::string_view there = bytes->View(offset, sizeof(message));
  // A view of no bytes may have a null pointer.
  if (!there.empty()) std::memcpy(&message, there.data(), there.size());
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

FileStatus ReadFileBytes(const std::string& path, std::string& bytes, std::uint64_t most) {
  bytes.clear();
  FileBytes file;
  if (FileStatus status = file.Open(path); status != Status::Ok) return status;
  if (file.Size() > most)
    return {Status::TooLong, "is larger than " + std::to_string(most / 1024 / 1024) + " MiB"};
  bytes.resize(file.Size());
  bytes.resize(file.Copy(0, bytes.data(), bytes.size()));
  return file.Failure();
}

bool IsSameFile(const std::string& left, const std::string& right) {
  if (left == right) return true;
  std::error_code error;
  if (std::filesystem::equivalent(PathOf(left), PathOf(right), error)) return true;
  const auto first = std::filesystem::absolute(PathOf(left), error).lexically_normal();
  if (error) return false;
  const auto second = std::filesystem::absolute(PathOf(right), error).lexically_normal();
  return !error && first == second;
}

}  // namespace TamLogClient
