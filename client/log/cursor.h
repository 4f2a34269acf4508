#pragma once

// A cursor identifies one message of the log by a short text: its time key, the digest of its bytes, its
// number among equal messages, and the log's counters at that moment. It names no slot, so it survives
// restarts of the server, rewrites of the ring, and a moved or copied file.
//
// "After the cursor" means later in time order. A message that arrives later but is dated before the cursor's
// is not after it; a program that must not miss such messages stores the memory of a follower as well
// (client/log/follower_memory.h).
//
// The functions have no state and may be called from any thread.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "client/log/log_snapshot.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

struct Cursor {
  std::uint64_t key = 0;
  MessageIdentity identity;
  std::uint32_t occurrence = 1;    // among messages with equal bytes, counted from the oldest
  std::uint64_t rewriteCount = 0;  // of the log, when the cursor was made
  std::uint64_t nextSequence = 0;  // likewise

  bool operator==(const Cursor&) const = default;
};

// Returns the cursor as text: letters, digits and points only, at most 120 characters.
std::string FormatCursor(const Cursor& cursor);

// Parses exactly what FormatCursor writes; nothing for anything else. The text contains a checksum against
// typing errors.
std::optional<Cursor> ParseCursor(std::string_view text);

// Returns the cursor of message `position` of `oldestFirst`, which has to be the time order of `snapshot`.
Cursor CursorOf(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& oldestFirst,
                std::size_t position);

// Makes cursors for messages of one log that come one after the other in time order, without the whole
// snapshot. They equal those of CursorOf as long as no equal message was left out. One thread at a time.
class CursorCount {
 public:
  // Sets the log that the next messages are from. Without it their cursors cannot detect later writes.
  void SetLog(const LogFileHeader& header) {
    rewriteCount = header.rewriteCount;
    nextSequence = header.nextSequence;
  }

  Cursor Next(const LogMessageBody& body);

 private:
  std::uint64_t rewriteCount = UINT64_MAX;
  std::uint64_t nextSequence = UINT64_MAX;
  std::uint64_t lastKey = 0;
  std::unordered_map<MessageIdentity, std::uint32_t, MessageIdentityHash> occurrences;  // at `lastKey`
};

struct CursorPlace {
  bool found = false;    // the message is still in the log
  std::size_t next = 0;  // index in the time order of the first message after it
  // Messages dated before the cursor's were written since the cursor was made. Some or all of them may have
  // been in the log before: an insertion writes the messages after it again.
  bool writtenBefore = false;
};

// Finds the cursor in `oldestFirst`, which has to be the time order of `snapshot`. When its message is gone,
// `next` is the first with a later time.
CursorPlace FindCursor(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& oldestFirst,
                       const Cursor& cursor);

}  // namespace TamLogClient
