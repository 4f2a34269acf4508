#pragma once

// A cursor identifies one message of the log by a short text: its time key, the digest of its bytes, and its
// number among equal messages. Nothing in it depends on the rest of the log: it stays the same text as long
// as the message is there, over restarts of the server, rewrites of the ring, and in a moved or copied file.
// So a list of cursors proves that no message is in it twice.
//
// Messages with equal bytes are interchangeable. They are numbered from the oldest, and when one of them
// leaves the log, the cursor with the highest number goes.
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

// The log's counters when a cursor was made. They tell whether messages were written before it since.
struct CursorHint {
  std::uint64_t rewriteCount = 0;
  std::uint64_t nextSequence = 0;

  bool operator==(const CursorHint&) const = default;
};

struct Cursor {
  std::uint64_t key = 0;
  MessageIdentity identity;
  std::uint32_t twin = 1;  // among messages with equal bytes, counted from the oldest
  std::optional<CursorHint> hint = std::nullopt;

  bool operator==(const Cursor&) const = default;
};

// Returns the cursor as text: letters, digits and points only, at most 120 characters. A hint follows after a
// plus sign; the text before it is the cursor without a hint.
std::string FormatCursor(const Cursor& cursor);

// Parses exactly what FormatCursor writes, and what earlier versions wrote; nothing for anything else. The
// text contains a checksum against typing errors.
std::optional<Cursor> ParseCursor(std::string_view text);

// Returns the cursor of message `position` of `oldestFirst`, which has to be the time order of `snapshot`.
Cursor CursorOf(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& oldestFirst,
                std::size_t position);

// Returns the cursor of a message by its number among equal ones.
Cursor CursorOf(const LogMessageBody& body, std::uint32_t twin);

CursorHint HintOf(const LogFileHeader& header);

// Numbers equal messages that come one after the other in time order, without the whole snapshot. Every
// message of the log has to be passed. One thread at a time.
class TwinCount {
 public:
  // Returns the number of the next message.
  std::uint32_t Next(const LogMessageBody& body);

 private:
  std::uint64_t lastKey = 0;
  std::unordered_map<MessageIdentity, std::uint32_t, MessageIdentityHash> counts;  // at `lastKey`
};

// The numbers of the equal messages of whole snapshots. Holds pointers to their slots. One thread at a time.
class TwinNumbers {
 public:
  // Adds the messages of a log. Its slots must neither move nor change as long as this object is used.
  void Add(const LogSnapshot& snapshot);

  // Returns the number of a message of those snapshots.
  std::uint32_t Of(const LogMessage* message) const;

 private:
  std::unordered_map<const LogMessage*, std::uint32_t> others;  // numbers above 1
};

// Returns the number of the message in each of `slots` of the snapshot.
std::vector<std::uint32_t> TwinsIn(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& slots);

struct CursorPlace {
  bool found = false;    // the message is still in the log
  std::size_t next = 0;  // index in the time order of the first message after it
  // Messages dated before the cursor's were written since its hint was made. Some or all of them may have
  // been in the log before: an insertion writes the messages after it again. False without a hint.
  bool writtenBefore = false;
};

// Finds the cursor in `oldestFirst`, which has to be the time order of `snapshot`. When its message is gone,
// `next` is the first with a later time.
CursorPlace FindCursor(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& oldestFirst,
                       const Cursor& cursor);

}  // namespace TamLogClient
