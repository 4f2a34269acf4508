#pragma once

// The state of a LogFollower in a form that can be stored in a file. With it a later run of a program
// continues where an earlier one ended, including late messages and losses.
//
// Only the newest messages are stored by their bytes. Older ones are recognized by their sequence numbers:
// unless a message was written again, its number was assigned before the state was stored.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/message/log_message_view.h"
#include "records/log_file_format.h"

namespace TamLogClient {

struct KnownMessage {
  MessageIdentity identity;
  std::uint64_t key = 0;
  std::uint32_t count = 0;       // equal messages
  std::uint32_t unnumbered = 0;  // of them: stored without a number
  std::uint64_t number = 0;      // of one that is numbered
  // A message that the server has written a second time, in its first slot; not one of `count`.
  bool isFirstCopy = false;

  bool operator==(const KnownMessage&) const = default;
};

struct FollowerMemory {
  LogFileHeader header{};
  std::vector<KnownMessage> known;
  std::uint64_t completeFrom = 0;  // every message of the log with at least this time key is in `known`
  bool suspect = true;             // these are the follower's fields of the same names
  std::uint64_t suspectUntil = 0;
  bool mayBeOthers = false;
  bool any = false;
  std::uint64_t lastKey = 0;
};

// Returns the state as lines of text, none of them empty; about 45 bytes a message.
std::string FormatMemory(const FollowerMemory& memory);

// Parses exactly what FormatMemory writes; nothing for anything else.
std::optional<FollowerMemory> ParseMemory(std::string_view text);

}  // namespace TamLogClient
