#include "client/file/message_shape.h"

#include <algorithm>
#include <cstring>

namespace TamLogClient {

namespace {

constexpr std::size_t kTypeAt = offsetof(LogMessage, body) + offsetof(LogMessageBody, type);
constexpr std::size_t kTimeAt = offsetof(LogMessage, body) + offsetof(LogMessageBody, timestamp);
constexpr std::int16_t kFirstYear = 1601;
constexpr std::int16_t kLastYear = 9999;

// The checks that fail most often: a search makes them for every byte of a file.
bool MayBeMessage(const char* slot) {
  std::uint32_t type = 0;
  std::memcpy(&type, slot + kTypeAt, sizeof(type));
  if (type >= kMessageTypes) return false;
  std::int16_t year = 0;
  std::memcpy(&year, slot + kTimeAt, sizeof(year));
  return year >= kFirstYear && year <= kLastYear;
}

}  // namespace

bool IsBlank(const LogMessageBody& body) {
  static const LogMessageBody blank{};
  return std::memcmp(&body, &blank, sizeof(body)) == 0;
}

bool HasEnds(const LogMessage& message) {
  return std::memchr(message.body.source, '\0', kTextSize) != nullptr &&
         std::memchr(message.body.text, '\0', kTextSize) != nullptr;
}

bool IsPlausibleTime(const TimeWords& words) {
  return words[0] >= kFirstYear && words[0] <= kLastYear && IsRealTime(words);
}

bool LooksLikeMessage(const LogMessage& message) {
  return message.body.type < kMessageTypes && IsPlausibleTime(WordsOf(message.body)) && HasEnds(message);
}

std::size_t FindMessage(std::string_view bytes, std::size_t from, std::size_t end) {
  if (bytes.size() < kNeededOfSlot) return std::string_view::npos;
  end = std::min(end, bytes.size() - kNeededOfSlot + 1);
  for (std::size_t at = from; at < end; ++at) {
    if (!MayBeMessage(bytes.data() + at)) continue;
    LogMessage message{};
    std::memcpy(&message, bytes.data() + at, kNeededOfSlot);
    if (LooksLikeMessage(message)) return at;
  }
  return std::string_view::npos;
}

}  // namespace TamLogClient
