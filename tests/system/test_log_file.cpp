#include "tests/system/test_log_file.h"

#include <cstring>
#include <stdexcept>

#include "tests/support/log_bytes.h"
#include "tests/system/platform.h"

TestLogFile TestLogFile::Empty(std::int32_t capacity) {
  TestLogFile image;
  image.header.maxMessages = capacity;
  image.header.changeCount = 1;
  image.header.rewriteCount = 1;
  image.slots.resize(static_cast<std::size_t>(capacity));
  return image;
}

TestLogFile TestLogFile::Read(const std::string& path) {
  const std::string bytes = ReadWholeFile(path);
  if (bytes.size() < kSlotsOffset || (bytes.size() - kSlotsOffset) % sizeof(LogMessage) != 0) {
    throw std::runtime_error(path + " is not a log file: " + std::to_string(bytes.size()) + " bytes");
  }
  TestLogFile image;
  image.header = TestSupport::HeaderOf(bytes);
  std::memcpy(&image.names, bytes.data() + kLockNamesOffset, sizeof(image.names));
  image.slots = TestSupport::SlotsOf(bytes);
  return image;
}

std::optional<LogFileHeader> TestLogFile::ReadHeader(const std::string& path) {
  const std::string bytes = ReadWholeFile(path, sizeof(LogFileHeader));
  if (bytes.size() < sizeof(LogFileHeader)) return std::nullopt;
  return TestSupport::HeaderOf(bytes);
}

void TestLogFile::Write(const std::string& path) const {
  WriteWholeFile(path, TestSupport::LogFileBytes(header, slots, names));
}

void TestLogFile::Append(const LogMessageBody& body) {
  LogMessage& slot = slots.at(static_cast<std::size_t>(header.nextSlot));
  slot = LogMessage{};
  slot.sequence = header.nextSequence++;
  slot.body = body;
  header.nextSlot = (header.nextSlot + 1) % header.maxMessages;
  if (header.messageCount < header.maxMessages) ++header.messageCount;
}

std::vector<LogMessage> TestLogFile::NewestFirst() const {
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

LogMessage& TestLogFile::Newest(std::int32_t i) {
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
