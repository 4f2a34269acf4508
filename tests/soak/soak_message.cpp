#include "tests/soak/soak_message.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string_view>

namespace Soak {

namespace {

constexpr const char* kSources[] = {"Stage", "Camera left", "Laser", "CAMERA RIGHT", "Vacuum pump", "Las"};
constexpr std::uint32_t kBackDatedEach = 40;
constexpr auto kBackDated = std::chrono::milliseconds(300);

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Compares without regard to case: the shorter of the two has to be the beginning of the longer.
bool Matches(std::string_view filter, std::string_view source) {
  const std::size_t length = std::min(filter.size(), source.size());
  return std::equal(filter.begin(), filter.begin() + static_cast<std::ptrdiff_t>(length), source.begin(),
                    [](char a, char b) { return Lower(a) == Lower(b); });
}

bool MatchesAny(const std::vector<std::string>& filters, std::string_view source) {
  return std::any_of(filters.begin(), filters.end(),
                     [source](const std::string& filter) { return Matches(filter, source); });
}

// Fills every field except the time.
LogMessageBody Undated(const MessageId& id) {
  LogMessageBody body{};
  std::memset(&body, static_cast<int>(id.number % 251), sizeof(body));
  std::memcpy(body.origin, &id.sender, sizeof(id.sender));
  std::memcpy(body.origin + sizeof(id.sender), &id.number, sizeof(id.number));
  body.type = TypeOf(id);
  const std::string source = SourceOf(id);
  std::memcpy(body.source, source.c_str(), source.size() + 1);
  std::string text = "sender " + std::to_string(id.sender) + " message " + std::to_string(id.number) + " ";
  text.append((id.number * 7 + id.sender) % 200, static_cast<char>('a' + id.number % 26));
  std::memcpy(body.text, text.c_str(), text.size() + 1);
  const std::uint32_t check = (id.sender * 2654435761U) ^ (id.number * 40503U);
  std::memcpy(body.tail, &check, sizeof(check));
  return body;
}

void Date(LogMessageBody& body, std::chrono::system_clock::time_point at) {
  const auto day = std::chrono::floor<std::chrono::days>(at);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(std::chrono::floor<std::chrono::milliseconds>(at - day));
  const std::int64_t words[8] = {static_cast<int>(date.year()),
                                 static_cast<unsigned>(date.month()),
                                 static_cast<unsigned>(date.day()),
                                 time.hours().count(),
                                 time.minutes().count(),
                                 time.seconds().count(),
                                 time.subseconds().count(),
                                 0};
  for (int i = 0; i < 8; ++i) body.timestamp[i] = static_cast<std::int16_t>(words[i]);
}

}  // namespace

Moment Now() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

const char* SourceOf(const MessageId& id) {
  return kSources[id.number % std::size(kSources)];
}

std::uint32_t TypeOf(const MessageId& id) {
  return id.number / 8 % kMessageTypes;
}

LogMessageBody MakeMessage(const MessageId& id) {
  LogMessageBody body = Undated(id);
  const bool early = id.number % kBackDatedEach == kBackDatedEach - 1;
  Date(body, std::chrono::system_clock::now() - (early ? kBackDated : std::chrono::milliseconds(0)));
  return body;
}

std::optional<MessageId> Identify(const LogMessageBody& body) {
  MessageId id;
  std::memcpy(&id.sender, body.origin, sizeof(id.sender));
  std::memcpy(&id.number, body.origin + sizeof(id.sender), sizeof(id.number));
  if (id.sender >= kSenders) return std::nullopt;
  LogMessageBody expected = Undated(id);
  std::memcpy(expected.timestamp, body.timestamp, sizeof(body.timestamp));
  if (std::memcmp(&expected, &body, sizeof(body)) != 0) return std::nullopt;
  return id;
}

bool SeenMessages::Add(const MessageId& id) {
  std::vector<bool>& ofSender = seen.at(id.sender);
  if (ofSender.size() <= id.number) ofSender.resize(std::size_t{id.number} + 1000);
  if (ofSender[id.number]) return false;
  ofSender[id.number] = true;
  ++count;
  return true;
}

bool SeenMessages::Has(const MessageId& id) const {
  const std::vector<bool>& ofSender = seen.at(id.sender);
  return id.number < ofSender.size() && ofSender[id.number];
}

bool FilterState::Keeps(const MessageId& id) const {
  if ((types >> TypeOf(id) & 1U) == 0) return false;
  if (!includes.empty()) return MatchesAny(includes, SourceOf(id));
  return !MatchesAny(excludes, SourceOf(id));
}

}  // namespace Soak
