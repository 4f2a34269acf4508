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

}  // namespace TamLogCtl
