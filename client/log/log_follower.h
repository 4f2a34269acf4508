#pragma once

// Determines which messages are new from one snapshot of the log to the next: each message once, and the
// number of messages lost in between, which is exact where the log's counters show it.
//
// Sequence numbers do not identify messages: they repeat when a back-dated message is inserted, and stay 0
// after a rewrite of the whole ring. While `rewriteCount` does not change, the position in the ring shows
// what is new; otherwise a message is recognized by its 546 bytes and the number of its occurrences. Memory
// is bounded by twice the ring's number of slots (24 bytes each and the table's overhead).
//
// A follower belongs to one thread.

#include <cstdint>
#include <limits>
#include <optional>
#include <unordered_map>
#include <vector>

#include "client/log/follower_memory.h"
#include "client/log/log_snapshot.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

struct NewMessage {
  std::uint32_t slot = 0;  // in the snapshot
  bool late = false;       // dated before a message of the last step that had any
};

// The number of messages that were in the log between two snapshots and are gone. `most` without value:
// unknown.
struct Loss {
  std::uint64_t least = 0;
  std::optional<std::uint64_t> most = 0;
  bool Any() const { return least > 0 || !most || *most > 0; }
  bool Exact() const { return most && *most == least; }
};

struct FollowStep {
  std::vector<NewMessage> messages;  // oldest first
  Loss loss;
  bool cleared = false;    // the log was emptied; messages that came and went before that are in `loss`
  bool rewritten = false;  // messages were inserted among known ones, or the ring was written again
};

class LogFollower {
 public:
  // Starts again: every message in `snapshot` counts as known.
  void Start(const LogSnapshot& snapshot);

  // Continues from the stored state of another follower; the next call has to be Next with `reopened` true.
  void Resume(const FollowerMemory& memory);

  // Returns the state of this follower, with the newest `mostMessages` messages by their bytes (and all that
  // have the same time as the oldest of these).
  FollowerMemory Remembered(std::size_t mostMessages) const;

  // Returns what is new in `snapshot` since the previous one. `reopened`: the log was closed and opened again
  // in between, so that equal counters prove nothing. Snapshots have to come from the same log in the order
  // in which they were taken.
  FollowStep Next(const LogSnapshot& snapshot, bool reopened);

 private:
  struct Known {
    std::uint32_t count = 0;
    std::uint64_t key = 0;
  };
  using KnownMessages = std::unordered_map<MessageIdentity, Known, MessageIdentityHash>;

  bool OnlyAppended(const LogSnapshot& snapshot, bool reopened) const;
  bool OldSlotsUnchanged(const LogSnapshot& snapshot, std::uint64_t appended) const;
  FollowStep TakeAppended(const LogSnapshot& snapshot);
  FollowStep TakeRewritten(const LogSnapshot& snapshot, bool reopened);
  bool SameRun(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& ring,
               const KnownMessages& known, bool reopened) const;
  bool BelowMemory(const LogMessage& message) const;
  KnownMessages CollectKnown() const;
  void Remember(const LogSnapshot& snapshot, KnownMessages gone);
  void EndSuspicion(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& ring);
  void MarkLate(const LogSnapshot& snapshot, FollowStep& step);
  bool WasValid(std::uint32_t slot) const;

  LogFileHeader last{};
  std::vector<MessageIdentity> identities;  // of `last`, by slot
  std::vector<std::uint64_t> keys;          // of `last`, by slot
  KnownMessages departed;                   // reported, no longer in the ring, but able to come back
  // The whole ring may have been rewritten: then new messages overwrite the newest ones, which the server
  // still holds and may write again later. Ends once every slot has a number from `suspectUntil` on.
  bool suspect = true;
  std::uint64_t suspectUntil = 0;
  // After Resume: messages older than `completeFrom` are not known by their bytes.
  bool resumed = false;
  std::uint64_t completeFrom = 0;
  bool any = false;  // a message was reported or known
  std::uint64_t newestKey = 0;
};

}  // namespace TamLogClient
