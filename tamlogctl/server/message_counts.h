#pragma once

// Counts how often each message occurs in a log. Equal messages cannot be distinguished, only counted.

#include <cstdint>
#include <unordered_map>

#include "client/log/log_snapshot.h"
#include "client/message/log_message_view.h"

namespace TamLogCtl {

using MessageCounts =
    std::unordered_map<TamLogClient::MessageIdentity, std::uint64_t, TamLogClient::MessageIdentityHash>;

MessageCounts CountsOf(const TamLogClient::LogSnapshot& log);

// The oldest time in a log. A full log has no room for a message that is not newer.
struct Oldest {
  bool full = false;
  std::uint64_t key = UINT64_MAX;

  bool LeavesRoomFor(const LogMessageBody& message) const { return !full || TimeKey(message) > key; }
};

Oldest OldestOf(const TamLogClient::LogSnapshot& log);

}  // namespace TamLogCtl
