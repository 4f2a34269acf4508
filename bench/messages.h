#pragma once

// The messages of all measurements: a source of 12 characters and a text of about 80, the size on which the
// figures of other logs are based. They depend on their number alone, so two programs have the same.

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "records/log_file_format.h"

namespace Bench {

// Sets the time words, which count up from 2026-01-01 in `milliseconds`; only the days 1 to 28 of a month are
// used.
inline void SetTime(LogMessageBody& body, std::uint64_t milliseconds) {
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

// Message `number` comes 50 ms after the previous one: 48 million of them stay within the year.
inline constexpr std::uint64_t kMillisecondsApart = 50;

class Messages {
 public:
  explicit Messages(std::uint64_t seed) : random(seed) {}

  LogMessageBody Next() {
    static const char* const kSources[] = {"CameraServer", "FrameGrabber", "MotionDriver", "ImageStorage"};
    static const char* const kTexts[][3] = {
        {"frame ", " of the stream taken, exposure ", " us, gain 1.25, temperature 41.5 C, ok"},
        {"axis moved by step ", " in ", " us, following error within the tolerance of 3 um"},
        {"buffer ", " returned to its pool after ", " us; 14 of 64 buffers are still in use"},
        {"connection ", " timed out after ", " us; trying once more in 500 ms with a new port"}};
    LogMessageBody body{};
    SetTime(body, number * kMillisecondsApart);
    const std::uint64_t pick = random();
    body.type = static_cast<std::uint32_t>(pick % 4);
    const std::string source = kSources[pick / 4 % 4];
    const auto& words = kTexts[pick / 16 % 4];
    const std::string text =
        words[0] + std::to_string(number) + words[1] + std::to_string(pick / 64 % 100000) + words[2];
    source.copy(body.source, kTextSize - 1);
    text.copy(body.text, kTextSize - 1);
    ++number;
    return body;
  }

  // Continues as if `count` messages had been returned before.
  void Skip(std::uint64_t count) { number += count; }

 private:
  std::mt19937_64 random;
  std::uint64_t number = 0;
};

inline std::vector<LogMessageBody> NextOf(Messages& messages, std::size_t count) {
  std::vector<LogMessageBody> bodies;
  bodies.reserve(count);
  for (std::size_t i = 0; i < count; ++i) bodies.push_back(messages.Next());
  return bodies;
}

}  // namespace Bench
