#include "client/message/log_message_view.h"

#include <cstring>

namespace TamLogClient {

namespace {

constexpr std::uint64_t kLowFactor = 0x9E3779B97F4A7C15U;
constexpr std::uint64_t kHighFactor = 0xC2B2AE3D27D4EB4FU;

std::uint64_t Mix(std::uint64_t state, std::uint64_t word, std::uint64_t factor) {
  state = (state ^ word) * factor;
  return state ^ (state >> 29U);
}

}  // namespace

MessageIdentity IdentityOf(const LogMessageBody& body) {
  std::array<unsigned char, (sizeof(LogMessageBody) + 7) / 8 * 8> bytes{};
  std::memcpy(bytes.data(), &body, sizeof(body));
  MessageIdentity identity{kHighFactor, kLowFactor};
  for (std::size_t at = 0; at < bytes.size(); at += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof(word));
    identity.low = Mix(identity.low, word, kLowFactor);
    identity.high = Mix(identity.high, word + at, kHighFactor);
  }
  return identity;
}

}  // namespace TamLogClient
