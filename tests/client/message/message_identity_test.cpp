#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "client/message/blake2b.h"
#include "client/message/log_message_view.h"

namespace {

using TamLogClient::Blake2b128;
using TamLogClient::IdentityOf;
using TamLogClient::MessageIdentity;
using TamLogClient::MessageIdentityHash;

using Table = std::unordered_map<MessageIdentity, int, MessageIdentityHash>;

constexpr std::uint64_t kMessages = 20000;

// Returns how many comparisons it takes to look up every entry once.
std::uint64_t StepsOf(const Table& table) {
  std::uint64_t steps = 0;
  for (std::size_t i = 0; i < table.bucket_count(); ++i) steps += table.bucket_size(i) * table.bucket_size(i);
  return steps;
}

std::uint64_t StepsOf(const std::vector<MessageIdentity>& identities) {
  Table table;
  for (const MessageIdentity& each : identities) ++table[each];
  EXPECT_EQ(table.size(), identities.size());
  return StepsOf(table);
}

LogMessageBody Numbered(std::uint64_t number) {
  LogMessageBody body{};
  std::memcpy(body.origin, &number, sizeof(number));
  return body;
}

std::uint64_t OrdinarySteps() {
  std::vector<MessageIdentity> identities;
  for (std::uint64_t i = 0; i < kMessages; ++i) identities.push_back(IdentityOf(Numbered(i)));
  return StepsOf(identities);
}

std::string Hex(const std::string& text) {
  const auto digest = Blake2b128(text.data(), text.size());
  std::string hex;
  for (const std::uint64_t word : digest) {
    for (unsigned i = 0; i < 64; i += 8) {
      constexpr char kDigits[] = "0123456789abcdef";
      hex += kDigits[word >> (i + 4) & 15U];
      hex += kDigits[word >> i & 15U];
    }
  }
  return hex;
}

// Values of another implementation of RFC 7693 (Python's hashlib).
TEST(MessageIdentityTest, DigestIsThatOfTheStandard) {
  EXPECT_EQ(Hex(""), "cae66941d9efbd404e4d88758ea67670");
  EXPECT_EQ(Hex("abc"), "cf4ab791c62b8d2b2109c90275287816");
  EXPECT_EQ(Hex(std::string(128, 'a')), "1271d28e731afb57bdfba6bdaf3501be");
  EXPECT_EQ(Hex(std::string(129, 'a')), "68b7bafbad5055c4ebe6eb170a0f8524");
  EXPECT_EQ(Hex(std::string(546, 'x')), "1c190d4987e7d924fafadcd0d347f6a9");
}

// Two words of such a message are chosen so that a multiplicative hash meets the same state after them: all
// have the same digest there.
TEST(MessageIdentityTest, MessagesCraftedAgainstAMultiplicativeHashTakeOrdinaryWork) {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
  constexpr std::uint64_t kStart = 0xC2B2AE3D27D4EB4FU;
  const auto mix = [](std::uint64_t state, std::uint64_t word) {
    state = (state ^ word) * kFactor;
    return state ^ (state >> 29U);
  };
  std::vector<MessageIdentity> identities;
  std::unordered_set<std::uint64_t> weak;
  for (std::uint64_t i = 0; i < kMessages; ++i) {
    LogMessageBody body{};
    unsigned char bytes[sizeof(body)] = {};
    const std::uint64_t second = mix(kStart, i);
    std::memcpy(bytes, &i, sizeof(i));
    std::memcpy(bytes + sizeof(i), &second, sizeof(second));
    weak.insert(mix(mix(kStart, i), second));
    std::memcpy(&body, bytes, sizeof(body));
    identities.push_back(IdentityOf(body));
  }
  EXPECT_EQ(weak.size(), 1U) << "the messages are not crafted well";
  EXPECT_LE(StepsOf(identities), 2 * OrdinarySteps());
}

// Digests can be computed by anybody, and a sender can choose among its messages. The key of the process
// decides where they go.
TEST(MessageIdentityTest, DigestsThatAreAlikeTakeOrdinaryWork) {
  std::vector<MessageIdentity> sameLow;
  std::vector<MessageIdentity> sameHigh;
  std::vector<MessageIdentity> sameRest;
  Table table;
  table.reserve(kMessages);
  const std::uint64_t buckets = table.bucket_count();
  for (std::uint64_t i = 0; i < kMessages; ++i) {
    sameLow.push_back({7, i});
    sameHigh.push_back({i << 40U, 7});
    sameRest.push_back({i * buckets, 0});
  }
  const std::uint64_t ordinary = OrdinarySteps();
  EXPECT_LE(StepsOf(sameLow), 2 * ordinary);
  EXPECT_LE(StepsOf(sameHigh), 2 * ordinary);
  EXPECT_LE(StepsOf(sameRest), 2 * ordinary);
}

}  // namespace
