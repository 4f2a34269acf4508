#pragma once

// Bounds the number of messages that were in the log between two snapshots of one follower and that it did
// not return.
//
// Four things can have happened to the ring between two snapshots of the same run of the log:
//
//   appends      each message got a number, in the order of the slots; `rewriteCount` did not change
//   insertions   a flush took the newest slots back and wrote them again with new numbers, new messages
//                among them; the next slot moved by the number of new messages
//   a clear      the ring began again at slot 0; the numbers went on
//   a full       every slot was written, newest message first, without numbers; no counter shows how many
//   rewrite      messages came
//
// (A stop can raise `changeCount` without a change.)
//
// Each one leaves its traces in the counters and in the numbers of the slots. The bounds cover every one of
// them that the traces allow. docs/protocol_background.md, "How the server writes", has the rules.

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "client/log/log_snapshot.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// The number of messages that were in the log between two snapshots and are gone. `most` without value:
// unknown.
struct Loss {
  std::uint64_t least = 0;
  std::optional<std::uint64_t> most = 0;
  bool Any() const { return least > 0 || !most || *most > 0; }
  bool Exact() const { return most && *most == least; }
};

// Two snapshots of the same run of the log, and what the follower did with the messages of the second one.
struct RingChange {
  // Numbers from this one on were assigned after the first snapshot.
  std::uint64_t FirstNumber() const { return before.nextSequence; }
  std::uint64_t Changes() const { return now->header.changeCount - before.changeCount; }
  std::uint64_t Rewrites() const { return now->header.rewriteCount - before.rewriteCount; }
  std::uint64_t Numbered() const { return now->header.nextSequence - before.nextSequence; }

  LogFileHeader before{};
  const LogSnapshot* now = nullptr;
  std::vector<std::uint32_t> ring;  // of `now`, oldest slot first
  // A slot whose number was assigned before the first snapshot has other bytes than it had then.
  bool oldSlotsDiffer = false;
  std::vector<bool> isReturned;  // by slots of `now`: the follower returns the message
  std::uint64_t returned = 0;    // messages with new numbers that the follower returns
  std::uint64_t returnedInAll = 0;
  std::uint64_t leftOut = 0;      // messages with new numbers that it takes for known ones
  std::uint64_t knownInRing = 0;  // messages of the ring that it takes for known ones, in all
  std::uint64_t doubtful = 0;  // messages without a number that it takes for known ones and that may be new
  // Messages of the first snapshot that are newer than the oldest slot of the second one.
  std::uint64_t newerThanOldestSlot = 0;
  // Messages that were lost before may be among the returned ones: the server held some that did not stand in
  // the ring at the first snapshot.
  bool lostMayComeBack = false;
  bool knownMayBeOthers =
      false;  // the server may have forgotten known messages that do not stand in the ring
};

// Returns the largest number of messages that an append or an insertion can have overwritten since the first
// snapshot and that did not stand in it. 0 as long as the ring has not gone round once.
std::uint64_t MostOverwritten(const RingChange& change);

// What can have happened, and with which losses; without value where it cannot have happened.
struct LossCases {
  std::optional<Loss> kept;       // appends and insertions only
  std::optional<Loss> cleared;    // at least one clear, no full rewrite
  std::optional<Loss> rewritten;  // at least one full rewrite, and perhaps clears

  bool Any() const { return kept || cleared || rewritten; }
  bool OnlyCleared() const { return cleared && !kept && !rewritten; }
  // Returns the bounds of all cases that are possible; unknown when none is, as in a damaged log.
  Loss Bounds() const;
};

LossCases CasesOf(const RingChange& change);

}  // namespace TamLogClient
