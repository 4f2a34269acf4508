// Writes a full log file of N messages as a busy system leaves it, and the same messages as lines of text.
// The messages depend on N alone, so that two runs measure the same.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <vector>

#include "bench/messages.h"
#include "records/log_file_format.h"

namespace {

constexpr const char* kUsage = "usage: make_log MESSAGES LOGFILE [TEXTFILE]\n";

LogFileHeader MakeHeader(std::uint64_t count) {
  LogFileHeader header{};
  header.maxMessages = static_cast<std::int32_t>(count);
  header.messageCount = static_cast<std::int32_t>(count);
  header.nextSequence = count + 1;
  return header;
}

int Write(std::uint64_t count, const char* logPath, const char* textPath) {
  std::ofstream log(logPath, std::ios::binary);
  std::ofstream text;
  if (textPath != nullptr) text.open(textPath, std::ios::binary);
  std::vector<char> head(kSlotsOffset);
  const LogFileHeader header = MakeHeader(count);
  std::memcpy(head.data(), &header, sizeof header);
  log.write(head.data(), static_cast<std::streamsize>(head.size()));
  Bench::Messages messages(count);
  for (std::uint64_t i = 0; i < count; ++i) {
    const LogMessage message = {.sequence = i + 1, .body = messages.Next(), .padding = {}};
    log.write(reinterpret_cast<const char*>(&message), sizeof message);
    if (text.is_open()) text << message.body.source << ": " << message.body.text << '\n';
  }
  log.close();
  text.close();
  if (log && (textPath == nullptr || text)) return 0;
  std::cerr << "make_log: " << logPath << " cannot be written\n";
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::uint64_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 0;
  if (argc < 3 || argc > 4 || count == 0 || count > 48'000'000) {
    std::cerr << kUsage;
    return 2;
  }
  return Write(count, argv[2], argc == 4 ? argv[3] : nullptr);
}
