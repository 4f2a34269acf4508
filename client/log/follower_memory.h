#pragma once

// What a LogFollower knows, in a form that can be kept in a file: with it a later run of a program goes on
// where an earlier one ended, late messages and losses included.
//
// Only the newest messages are kept by their bytes. An older one is known by its sequence number: unless it
// was written again, that number was given before the memory was taken.

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
  std::uint32_t count = 0;  // equal messages

  bool operator==(const KnownMessage&) const = default;
};

struct FollowerMemory {
  LogFileHeader header{};
  std::vector<KnownMessage> known;
  std::uint64_t completeFrom = 0;  // every message of the log with at least this time key is in `known`
  bool suspect = true;             // the fields of the follower with these names
  std::uint64_t suspectUntil = 0;
  bool any = false;
  std::uint64_t newestKey = 0;
};

// Lines of text without a blank line; about 45 bytes a message.
std::string FormatMemory(const FollowerMemory& memory);

// Reads exactly what FormatMemory writes; nothing for anything else.
std::optional<FollowerMemory> ParseMemory(std::string_view text);

}  // namespace TamLogClient
