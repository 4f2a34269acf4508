#include "tests/system/log_file_image.h"

#include <cstring>
#include <stdexcept>

#include "tests/system/platform.h"

LogFileImage LogFileImage::Empty(std::int32_t capacity) {
  LogFileImage image;
  image.header.maxMessages = capacity;
  image.header.changeCount = 1;
  image.header.rewriteCount = 1;
  image.slots.resize(static_cast<std::size_t>(capacity));
  return image;
}

LogFileImage LogFileImage::Read(const std::string& path) {
  const std::string bytes = ReadWholeFile(path);
  if (bytes.size() < kSlotsOffset || (bytes.size() - kSlotsOffset) % sizeof(LogMessage) != 0) {
    throw std::runtime_error(path + " is no log file: " + std::to_string(bytes.size()) + " bytes");
  }
  LogFileImage image;
  std::memcpy(&image.header, bytes.data(), sizeof(image.header));
  std::memcpy(&image.names, bytes.data() + kLockNamesOffset, sizeof(image.names));
  image.slots.resize((bytes.size() - kSlotsOffset) / sizeof(LogMessage));
  if (!image.slots.empty()) {
    std::memcpy(image.slots.data(), bytes.data() + kSlotsOffset, bytes.size() - kSlotsOffset);
  }
  return image;
}

std::optional<LogFileHeader> LogFileImage::ReadHeader(const std::string& path) {
  const std::string bytes = ReadWholeFile(path, sizeof(LogFileHeader));
  if (bytes.size() < sizeof(LogFileHeader)) return std::nullopt;
  LogFileHeader header{};
  std::memcpy(&header, bytes.data(), sizeof(header));
  return header;
}

void LogFileImage::Write(const std::string& path) const {
  std::string bytes(LogFileSize(slots.size()), '\0');
  std::memcpy(bytes.data(), &header, sizeof(header));
  std::memcpy(bytes.data() + kLockNamesOffset, &names, sizeof(names));
  if (!slots.empty())
    std::memcpy(bytes.data() + kSlotsOffset, slots.data(), slots.size() * sizeof(LogMessage));
  WriteWholeFile(path, bytes);
}

void LogFileImage::Append(const LogMessageBody& body) {
  LogMessage& slot = slots.at(static_cast<std::size_t>(header.nextSlot));
  slot = LogMessage{};
  slot.sequence = header.nextSequence++;
  slot.body = body;
  header.nextSlot = (header.nextSlot + 1) % header.maxMessages;
  if (header.messageCount < header.maxMessages) ++header.messageCount;
}

std::vector<LogMessage> LogFileImage::NewestFirst() const {
  std::vector<LogMessage> messages;
  for (std::int32_t i = 0; i < header.messageCount; ++i) {
    std::int32_t index = header.nextSlot - i - 1;
    if (index < 0) index += header.maxMessages;
    if (index < 0 || static_cast<std::size_t>(index) >= slots.size()) {
      throw std::runtime_error("the header leads to slot " + std::to_string(index) + " of " +
                               std::to_string(slots.size()));
    }
    messages.push_back(slots[static_cast<std::size_t>(index)]);
  }
  return messages;
}

LogMessage& LogFileImage::Newest(std::int32_t i) {
  std::int32_t index = header.nextSlot - i - 1;
  if (index < 0) index += header.maxMessages;
  return slots.at(static_cast<std::size_t>(index));
}

std::vector<std::string> Texts(const std::vector<LogMessage>& messages) {
  std::vector<std::string> texts;
  texts.reserve(messages.size());
  for (const LogMessage& message : messages) texts.emplace_back(message.body.text);
  return texts;
}
