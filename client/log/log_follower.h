#pragma once

// Determines which messages are new from one snapshot of the log to the next: each message once, and the
// number of messages lost in between, which is exact where the log's counters show it (loss_bounds.h).
//
// A message changes its number when a back-dated one is inserted before it, and has none after a rewrite of
// the whole ring. While `rewriteCount` does not change, the numbers show what is new; otherwise a message
// with a new number is recognized by its 546 bytes and the number of its occurrences. Messages that equal
// each other byte by byte can be told apart only as far as numbers and counters show it; where they do not,
// the message counts as known, and a possible loss is reported.
//
// A log that another run of the server has emptied may get its old messages again (a change of capacity that
// keeps them sends them a second time). A message that equals one known from before is then taken for it, as
// often as it was known.
//
// Memory is bounded by five times the ring's number of slots (40 bytes each and the table's overhead).
//
// A follower belongs to one thread.

#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

#include "client/log/follower_memory.h"
#include "client/log/log_snapshot.h"
#include "client/log/loss_bounds.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

struct NewMessage {
  std::uint32_t slot = 0;  // in the snapshot
  bool late = false;       // dated before the message returned just before it
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
    std::uint32_t unnumbered = 0;  // of them: stored without a number
    std::uint64_t key = 0;
    std::uint64_t number = 0;  // of one that is numbered
    bool stood = false;        // one of them was in the ring at the last snapshot
    // Some have a number and some have none: one message may be there twice, or it and its equal.
    bool perhapsCopies = false;
  };
  using KnownMessages = std::unordered_map<MessageIdentity, Known, MessageIdentityHash>;

  // One message of a snapshot while it is compared with the known ones.
  struct Candidate {
    std::uint32_t slot = 0;
    MessageIdentity identity;
    std::uint64_t number = 0;
    std::uint64_t key = 0;
    bool oldNumber = false;  // assigned before the last snapshot, in the same run
    bool settled = false;
    bool recognized = false;  // one of the known messages is taken for it
    bool inBlock = false;     // in what may be left of a full rewrite
    bool copied = false;      // the server has written it a second time: it is in another slot as well
    bool isNew = false;
    Candidate* first = nullptr;  // the first copy, when this one is taken for a second one
  };
  // Whether a snapshot continues the run of the log that the last one was taken from.
  enum class Run : std::uint8_t { Same, Unclear, Other };
  struct Comparison;
  using FirstCopies = std::unordered_map<MessageIdentity, std::vector<Candidate*>, MessageIdentityHash>;

  bool OnlyAppended(const LogSnapshot& snapshot, bool reopened) const;
  bool IsUnchanged(const Candidate& candidate) const;
  FollowStep TakeAppended(const LogSnapshot& snapshot);
  FollowStep TakeRewritten(const LogSnapshot& snapshot, bool reopened);
  std::vector<Candidate> CandidatesOf(const LogSnapshot& snapshot) const;
  Run RunOf(const Comparison& comparison) const;
  bool RecognizeCopy(const Candidate& candidate);
  static bool Recognize(Comparison& comparison, const Candidate& candidate);
  void TakeOldNumbers(Comparison& comparison);
  FirstCopies FirstCopiesIn(Comparison& comparison) const;
  void TakeOthers(Comparison& comparison) const;
  void TakeOther(Comparison& comparison, Candidate& candidate, FirstCopies& copies) const;
  void CountKnown(Comparison& comparison, const Candidate& candidate) const;
  bool IsCertainlyNew(const Comparison& comparison, const Candidate& candidate) const;
  bool OldSlotsDiffer(const Comparison& comparison) const;
  RingChange ChangeOf(const Comparison& comparison) const;
  Loss Settle(Comparison& comparison);
  KnownMessages CollectKnown() const;
  void AddKnown(KnownMessages& known, std::uint32_t slot) const;
  void Remember(const LogSnapshot& snapshot, const std::vector<Candidate>& candidates, KnownMessages gone);
  void EndSuspicion(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& ring);
  void MarkLate(const LogSnapshot& snapshot, FollowStep& step);
  bool WasValid(std::uint32_t slot) const;
  // Returns whether every message that the server held at the last snapshot stood in the ring: no full
  // rewrite came, or nothing was appended since the last one.
  bool RingHoldsAll() const;

  struct Slot {
    MessageIdentity identity;
    std::uint64_t key = 0;
    std::uint64_t number = 0;
    bool copied = false;  // as in Candidate: the message counts in the other slot
  };

  LogFileHeader last{};
  std::vector<Slot> slots;  // of `last`
  KnownMessages departed;   // reported, no longer in the ring, but able to come back
  // First copies of the memory, by their numbers, with their keys; until the first snapshot after a resume.
  std::unordered_map<MessageIdentity, std::multimap<std::uint64_t, std::uint64_t>, MessageIdentityHash>
      firstCopies;
  // The whole ring may have been rewritten: then new messages overwrite the newest ones, which the server
  // still holds and may write again later. Ends once every slot has a number from `suspectUntil` on.
  bool suspect = true;
  std::uint64_t suspectUntil = 0;
  // Messages older than this were cut off from the memory that this follower resumed from. They may come back
  // as long as the ring is suspect.
  std::uint64_t completeFrom = 0;
  // The log may have been emptied meanwhile: then the departed messages do not come back, and one that equals
  // them is another.
  bool mayBeOthers = false;
  bool any = false;           // a message was reported or known
  std::uint64_t lastKey = 0;  // of the last one reported
};

}  // namespace TamLogClient
