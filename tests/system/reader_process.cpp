#include "tests/system/reader_process.h"

#include <cstring>
#include <stdexcept>

namespace {

std::string CommandLine(const std::string& mode, const std::string& resultFile) {
  const std::string line = "\"" + OwnDirectory() + "\\system_reader.exe\" " + mode;
  return resultFile.empty() ? line : line + " \"" + resultFile + "\"";
}

std::vector<LogMessage> Messages(const std::string& bytes, std::size_t from) {
  if (bytes.size() < from || (bytes.size() - from) % sizeof(LogMessage) != 0) {
    throw std::runtime_error("a reader left half a message");
  }
  std::vector<LogMessage> messages((bytes.size() - from) / sizeof(LogMessage));
  if (!messages.empty()) std::memcpy(messages.data(), bytes.data() + from, bytes.size() - from);
  return messages;
}

}  // namespace

ReaderProcess::ReaderProcess(const std::string& mode, const std::string& resultFile)
    : file(resultFile), child(CommandLine(mode, resultFile)) {}

std::string ReaderProcess::NextLine(std::chrono::milliseconds limit) {
  return child.ReadLine(limit).value_or("");
}

LogFileHeader ReaderProcess::ResultHeader() const {
  const std::string bytes = ReadWholeFile(file);
  LogFileHeader header{};
  if (bytes.size() < sizeof(header)) throw std::runtime_error("a reader left no header");
  std::memcpy(&header, bytes.data(), sizeof(header));
  return header;
}

std::vector<LogMessage> ReaderProcess::ResultMessages() const {
  return Messages(ReadWholeFile(file), sizeof(LogFileHeader));
}

std::vector<LogMessage> ReaderProcess::FollowedMessages() const {
  return Messages(ReadWholeFile(file), 0);
}
