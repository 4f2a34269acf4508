// Writes a full log file of N messages as a busy system leaves it, and the same messages as lines of text.
// The messages depend on N alone, so that two runs measure the same.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "store/log_file_format.h"

namespace {

constexpr const char* kUsage = "usage: make_log MESSAGES LOGFILE [TEXTFILE]\n";

// Time words count up from 2026-01-01 in steps of 50 ms and never leave a month's 28 days in use: enough for
// 48 million messages.
void SetTime(LogMessageBody& body, std::uint64_t step) {
  const std::uint64_t milliseconds = step * 50;
  const std::uint64_t seconds = milliseconds / 1000;
  const std::uint64_t days = seconds / 86400;
  const auto word = [](std::uint64_t value) { return static_cast<std::int16_t>(value); };
  const std::int16_t words[8] = {2026,
                                 word(1 + days / 28),
                                 word(1 + days % 28),
                                 word(seconds / 3600 % 24),
                                 word(seconds / 60 % 60),
                                 word(seconds % 60),
                                 word(milliseconds % 1000),
                                 0};
  static_assert(sizeof words == sizeof body.timestamp);
  std::memcpy(body.timestamp, words, sizeof words);
}

// A source of about 12 characters and a text of about 80, the size that the figures of other logs stand for.
LogMessage MakeMessage(std::uint64_t number, std::mt19937_64& random) {
  static const char* const kSources[] = {"CameraServer", "FrameGrabber", "MotionDriver", "ImageStorage"};
  static const char* const kTexts[][3] = {
      {"frame ", " of the stream taken, exposure ", " us, gain 1.25, temperature 41.5 C, ok"},
      {"axis moved by step ", " in ", " us, following error within the tolerance of 3 um"},
      {"buffer ", " returned to its pool after ", " us; 14 of 64 buffers are still in use"},
      {"connection ", " timed out after ", " us; trying once more in 500 ms with a new port"}};
  LogMessage message{};
  message.sequence = number + 1;
  SetTime(message.body, number);
  const std::uint64_t pick = random();
  message.body.type = static_cast<std::uint32_t>(pick % 4);
  const std::string source = kSources[pick / 4 % 4];
  const auto& words = kTexts[pick / 16 % 4];
  const std::string text =
      words[0] + std::to_string(number) + words[1] + std::to_string(pick / 64 % 100000) + words[2];
  source.copy(message.body.source, kTextSize - 1);
  text.copy(message.body.text, kTextSize - 1);
  return message;
}

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
  std::mt19937_64 random(count);
  for (std::uint64_t i = 0; i < count; ++i) {
    const LogMessage message = MakeMessage(i, random);
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
