#include "client/message/log_message_view.h"

#include <random>

#include "client/message/blake2b.h"

namespace TamLogClient {

namespace {

struct TableKey {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
};

std::uint64_t RandomWord(std::random_device& random) {
  return (std::uint64_t{random()} << 32U) ^ random();
}

const TableKey& KeyOfThisProcess() {
  static const TableKey key = [] {
    std::random_device random;
    return TableKey{RandomWord(random), RandomWord(random)};
  }();
  return key;
}

std::uint64_t Mix(std::uint64_t state) {
  state = (state ^ (state >> 32U)) * 0xD6E8FEB86659FD93U;
  state = (state ^ (state >> 32U)) * 0xD6E8FEB86659FD93U;
  return state ^ (state >> 32U);
}

}  // namespace

MessageIdentity IdentityOf(const LogMessageBody& body) {
  const auto digest = Blake2b128(&body, sizeof(body));
  return {digest[0], digest[1]};
}

std::size_t MessageIdentityHash::operator()(const MessageIdentity& identity) const {
  const TableKey& key = KeyOfThisProcess();
  return Mix(Mix(identity.low ^ key.low) + (identity.high ^ key.high));
}

}  // namespace TamLogClient
