#include "client/log/loss_bounds.h"

#include <algorithm>
#include <cstddef>

#include "client/message/log_message_view.h"

namespace TamLogClient {

namespace {

constexpr std::uint64_t kUnbounded = std::numeric_limits<std::uint64_t>::max();
const Loss kUnknown{0, std::nullopt};

const LogMessage& At(const RingChange& change, std::size_t position) {
  return change.now->slots[change.ring[position]];
}

// Returns how many of the ring's oldest slots have no number that was assigned since the first snapshot. (The
// first message of a log has the number 0, which is also that of messages without a number.)
std::size_t OldSlots(const RingChange& change) {
  const std::uint64_t least = std::max<std::uint64_t>(change.FirstNumber(), 1);
  const auto first = std::find_if(change.ring.begin(), change.ring.end(), [&](std::uint32_t slot) {
    return change.now->slots[slot].sequence >= least;
  });
  return static_cast<std::size_t>(first - change.ring.begin());
}

// Returns whether all slots from `position` on have numbers assigned since the first snapshot, rising.
bool NumbersRiseFrom(const RingChange& change, std::size_t position) {
  std::uint64_t least = change.FirstNumber();
  for (; position < change.ring.size(); ++position) {
    const std::uint64_t number = At(change, position).sequence;
    if (number < least || number >= change.now->header.nextSequence) return false;
    least = number + 1;
  }
  return true;
}

// Returns how many of the ring's oldest slots a full rewrite since the first snapshot has left at least: all
// but those that were appended after it, each with a new number.
std::size_t LeastOfBlock(const RingChange& change) {
  const std::uint64_t numbered = change.Numbered();
  const std::size_t size = change.ring.size();
  std::size_t end = size > numbered ? size - static_cast<std::size_t>(numbered) : 0;
  for (std::size_t i = end; i < size; ++i) {
    if (At(change, i).sequence < change.FirstNumber()) end = i + 1;
  }
  return end;
}

// A full rewrite stores the newest message in the oldest slot. So what is left of it neither rises in time
// nor, at equal times, in numbers.
bool BlockRises(const RingChange& change) {
  const std::size_t end = LeastOfBlock(change);
  for (std::size_t i = 1; i < end; ++i) {
    const LogMessage& older = At(change, i - 1);
    const LogMessage& newer = At(change, i);
    const std::uint64_t before = TimeKey(older.body);
    const std::uint64_t after = TimeKey(newer.body);
    if (before < after) return true;
    if (before == after && older.sequence != 0 && older.sequence < newer.sequence) return true;
  }
  return false;
}

std::uint64_t Less(std::uint64_t from, std::uint64_t number) {
  return from - std::min(from, number);
}

// Returns how many messages with new numbers, taken for known ones, can be new. An insertion alone writes
// every message again that is newer than the first one it writes, so that the known one and its twin are both
// there; only of those with the same time one may be missing.
std::uint64_t MostTwinsLeftOut(const RingChange& change) {
  const std::uint64_t numbered = change.Numbered();
  if (change.Changes() > 1 || change.knownMayBeOthers || numbered > change.ring.size()) return change.leftOut;
  const std::size_t first = change.ring.size() - static_cast<std::size_t>(numbered);
  std::uint64_t twins = 0;
  for (std::size_t i = first; i < change.ring.size(); ++i) {
    const bool sameTime = TimeKey(At(change, i).body) == TimeKey(At(change, first).body);
    if (sameTime && !change.isReturned[change.ring[i]]) ++twins;
  }
  return twins;
}

// Returns the bounds for `least` to `most` new messages with numbers.
Loss LossOf(const RingChange& change, std::uint64_t least, std::uint64_t most) {
  Loss loss{Less(least, change.returned), Less(most, change.returned)};
  // Where one that was lost before has come back, a new one may have been taken for a known one. The first
  // message of an insertion is new.
  if (change.lostMayComeBack && change.returned > least)
    loss.most = std::max(*loss.most, std::min(MostTwinsLeftOut(change), Less(most, 1)));
  return loss;
}

// Returns the bounds for `new messages`, which are at least `least`, at most `most`, and `remainder` modulo
// the capacity.
std::optional<Loss> LossAmong(const RingChange& change, std::uint64_t least, std::uint64_t most,
                              std::uint64_t remainder) {
  const auto capacity = static_cast<std::uint64_t>(change.now->header.maxMessages);
  least += (remainder + capacity - least % capacity) % capacity;
  if (least > most) return std::nullopt;
  most -= (most + capacity - remainder) % capacity;
  return LossOf(change, least, most);
}

// Appends and insertions. The next slot moves by one for each new message, and while the ring fills so does
// the count. A message is lost when the ring came round to it. Then every slot has a number of its own since,
// and the lost message had a lower one than all of them.
std::optional<Loss> IfKept(const RingChange& change) {
  const LogFileHeader& before = change.before;
  const LogFileHeader& now = change.now->header;
  const std::size_t old = OldSlots(change);
  if (change.oldSlotsDiffer || !NumbersRiseFrom(change, old)) return std::nullopt;
  const std::uint64_t rewrites = change.Rewrites();
  if (change.Numbered() < 2 * rewrites) return std::nullopt;  // each writes an old and a new message
  const std::uint64_t most =
      std::min(change.Numbered() - rewrites, change.returned + change.leftOut + MostOverwritten(change));
  // Those that come back have a new number.
  const std::uint64_t returnedNew = change.lostMayComeBack ? rewrites : change.returned;
  std::uint64_t least = rewrites == 0 ? change.Numbered() : returnedNew;
  const std::int64_t more = std::int64_t{now.messageCount} - before.messageCount;
  if (more < 0 || least < returnedNew) return std::nullopt;
  if (!change.now->Full()) {
    const auto came = static_cast<std::uint64_t>(more);
    if (came < least || came > most) return std::nullopt;
    return LossOf(change, came, came);
  }
  least = std::max(least, static_cast<std::uint64_t>(more));
  const std::int64_t moved = std::int64_t{now.nextSlot} - before.nextSlot;
  return LossAmong(change, least, most,
                   static_cast<std::uint64_t>(moved < 0 ? moved + now.maxMessages : moved));
}

// Returns how many insertions left a gap in the numbers of the ring. What is left of a full rewrite can be
// one slot of the rising numbers at most, so a gap after the second slot is not its end.
std::uint64_t InsertionsSeen(const RingChange& change) {
  std::uint64_t gaps = 0;
  std::size_t i = OldSlots(change);
  if (!NumbersRiseFrom(change, i)) return 0;
  for (i += 2; i < change.ring.size(); ++i) {
    if (At(change, i).sequence != At(change, i - 1).sequence + 1) ++gaps;
  }
  return gaps;
}

// Returns whether the ring can have been empty at some time since the first snapshot: only new numbers are in
// it, and a flush has appended the first of them.
bool CanHaveBeenEmpty(const RingChange& change) {
  if (change.Rewrites() == InsertionsSeen(change) || (OldSlots(change) > 0 && change.FirstNumber() > 0))
    return false;
  return change.ring.empty() || change.Changes() > change.Rewrites();
}

std::optional<Loss> IfCleared(const RingChange& change) {
  if (!CanHaveBeenEmpty(change) || !NumbersRiseFrom(change, 0)) return std::nullopt;
  const std::uint64_t numbered = change.Numbered();
  if (numbered < change.ring.size()) return std::nullopt;
  const std::uint64_t most = numbered - change.returned;
  if (change.Rewrites() > 1) return Loss{change.leftOut, most};
  // All but the clear were appends: one before it for what is lost, and one after it for what is there.
  const std::uint64_t flushes = (numbered > change.ring.size() ? 1U : 0U) + (change.ring.empty() ? 0U : 1U);
  if (change.Changes() < 1 + flushes) return std::nullopt;
  const std::uint64_t appends = change.Changes() - 1;
  const auto mostOfOne = static_cast<std::uint64_t>(change.now->header.maxMessages) - 1;
  if (mostOfOne < kUnbounded / std::max<std::uint64_t>(appends, 1) && numbered > appends * mostOfOne)
    return std::nullopt;
  if (!change.ring.empty() && At(change, 0).sequence + change.ring.size() != change.now->header.nextSequence)
    return std::nullopt;
  return Loss{most, most};
}

// Returns the position in the ring from which on numbers rise that were assigned since the first snapshot.
// (The last slot left of a full rewrite can look like the first of these.)
std::size_t SpanBegin(const RingChange& change) {
  const std::uint64_t least = std::max<std::uint64_t>(change.FirstNumber(), 1);
  std::size_t begin = change.ring.size();
  for (; begin > 0 && At(change, begin - 1).sequence >= least; --begin) {
    if (begin < change.ring.size() && At(change, begin - 1).sequence >= At(change, begin).sequence) break;
  }
  return begin;
}

// The state of the ring some time after its last full rewrite, which came after the first snapshot. That
// wrote the server's whole list, the newest message into slot 0. So the next slot shows how many messages
// came since: they are all in the ring, at its end, and as many of the others are hidden.
struct Block {
  std::size_t end = 0;        // position in the ring after the last slot left of the full rewrite
  std::uint64_t since = 0;    // messages that came since
  std::uint64_t hidden = 0;   // new messages of the rewrite that were overwritten since, at most
  std::uint64_t changes = 0;  // flushes before the full rewrite, at most
};

// Returns nothing when there was no full rewrite, or nothing is left of it.
std::optional<Block> BlockOf(const RingChange& change) {
  Block block;
  block.end = SpanBegin(change);
  block.since = static_cast<std::uint64_t>(change.now->header.nextSlot);
  const std::uint64_t span = change.ring.size() - block.end;
  if (block.since > span || (block.since > 0 && change.Changes() < 2)) return std::nullopt;
  if (change.Rewrites() == 1 && span > block.since + 1) return std::nullopt;
  block.changes = change.Changes() - (block.since > 0 ? 2 : 1);
  // Messages newer than the first slot that is left were in the slots before it. (After four changes a
  // restart that nobody noticed may have made the server forget some.)
  const bool listGrew = change.Rewrites() == 1 || change.Changes() < 4;
  block.hidden = block.since - std::min(block.since, listGrew ? change.newerThanOldestSlot : 0);
  // Insertions that reached back to the end of the block have overwritten its oldest messages as well.
  if (change.Rewrites() > 1) block.hidden += span - block.since;
  return block;
}

// A single full rewrite, and only appends otherwise: each number was assigned to another message.
std::optional<Loss> AroundOneRewrite(const RingChange& change, const Block& block) {
  const std::size_t size = change.ring.size();
  const std::uint64_t since = block.since;
  if (since > 0 && At(change, size - since).sequence + since != change.now->header.nextSequence)
    return std::nullopt;
  const std::uint64_t gone = change.Numbered() - std::min(change.Numbered(), change.returned);
  const std::uint64_t back =
      change.lostMayComeBack ? change.returnedInAll - std::min(change.returnedInAll, change.returned) : 0;
  return Loss{gone - std::min(gone, back), gone + block.hidden + change.doubtful};
}

// Returns whether a slot of the block shows that the log was not cleared: its message got its number before
// the first snapshot.
bool ShowsNoClear(const RingChange& change, const Block& block) {
  for (std::size_t i = 0; i < block.end; ++i) {
    const std::uint64_t number = At(change, i).sequence;
    if (number > 0 && number < change.FirstNumber()) return true;
  }
  return false;
}

// Several rewrites, the last full one among them. A message that came before that one and was dropped from
// the server's list until then made room for a newer one, which is in the list still; so at most as many were
// dropped after each flush as new ones are left.
Loss AroundSeveralRewrites(const RingChange& change, const Block& block) {
  std::uint64_t twins = 0;  // messages with new numbers, taken for known ones, that may be new
  std::uint64_t inSpan = 0;
  std::uint64_t returnedInSpan = 0;
  for (std::size_t i = 0; i < change.ring.size(); ++i) {
    if (At(change, i).sequence < std::max<std::uint64_t>(change.FirstNumber(), 1)) continue;
    const bool isReturned = change.isReturned[change.ring[i]];
    if (i < block.end) {
      if (!isReturned) ++twins;
    } else if (!isReturned) {
      ++inSpan;
    } else if (i > block.end) {  // the first slot may be one of the block
      ++returnedInSpan;
    }
  }
  twins += std::min(inSpan, block.since - std::min(block.since, returnedInSpan));
  const std::uint64_t visible = change.returnedInAll + twins;
  const std::uint64_t newInBlock = visible - std::min(visible, block.since) + change.doubtful + block.hidden;
  if (newInBlock > 0 && block.changes > 1) return kUnknown;
  const std::uint64_t dropped = newInBlock > 0 ? newInBlock * block.changes : 0;
  return {0, dropped + block.hidden + twins + change.doubtful};
}

// Returns the largest number of messages that came into the log since the first snapshot and are not
// returned. A full rewrite stores at most as many as the ring holds; every other message got a number.
std::optional<std::uint64_t> MostGone(const RingChange& change) {
  const auto capacity = static_cast<std::uint64_t>(change.now->header.maxMessages);
  const std::uint64_t insertions = InsertionsSeen(change);
  const std::uint64_t clears = change.now->Full() ? 0 : 1;
  const std::uint64_t full = Less(change.Rewrites(), insertions + clears);
  if (full > kUnbounded / 2 / capacity || change.Numbered() > kUnbounded / 2) return std::nullopt;
  return Less(change.Numbered() + full * capacity, insertions + change.returnedInAll);
}

std::optional<Loss> IfRewritten(const RingChange& change) {
  if (change.Rewrites() == InsertionsSeen(change)) return std::nullopt;
  // A burst that replaced the whole ring may have held more messages than the ring: those never reached the
  // file, and no counter shows them.
  const bool replaced = change.now->Full() && change.knownInRing == 0;
  const Loss bounded{0, replaced ? std::nullopt : MostGone(change)};
  if (!change.now->Full()) {
    return change.Rewrites() > 1 && CanHaveBeenEmpty(change) ? std::optional(bounded) : std::nullopt;
  }
  if (BlockRises(change)) return std::nullopt;
  if (change.Changes() == 1 && change.Numbered() > 0) return std::nullopt;
  // The block was overwritten; or number 0 was assigned, and nothing tells that message from those without
  // one.
  if (SpanBegin(change) == 0 || (change.FirstNumber() == 0 && change.Numbered() > 0)) return bounded;
  const std::optional<Block> block = BlockOf(change);
  if (!block) return std::nullopt;
  if (replaced) return kUnknown;
  if (change.Rewrites() == 1) return AroundOneRewrite(change, *block);
  if (!ShowsNoClear(change, *block)) return bounded;
  Loss loss = AroundSeveralRewrites(change, *block);
  if (bounded.most) loss.most = std::min(loss.most.value_or(kUnbounded), *bounded.most);
  return loss;
}

}  // namespace

std::uint64_t MostOverwritten(const RingChange& change) {
  if (change.ring.empty() || OldSlots(change) > 0) return 0;
  return At(change, 0).sequence - change.FirstNumber();
}

Loss LossCases::Bounds() const {
  std::optional<Loss> all;
  for (const std::optional<Loss>& each : {kept, cleared, rewritten}) {
    if (!each) continue;
    if (!all) {
      all = each;
      continue;
    }
    all->least = std::min(all->least, each->least);
    all->most = all->most && each->most ? std::optional(std::max(*all->most, *each->most)) : std::nullopt;
  }
  return all.value_or(kUnknown);
}

LossCases CasesOf(const RingChange& change) {
  return {IfKept(change), IfCleared(change), IfRewritten(change)};
}

}  // namespace TamLogClient
