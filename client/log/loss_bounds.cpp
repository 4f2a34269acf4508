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

// Returns the bounds for `new messages`, which are at least `least`, at most `most`, and `remainder` modulo
// the capacity.
std::optional<Loss> LossAmong(const RingChange& change, std::uint64_t least, std::uint64_t most,
                              std::uint64_t remainder) {
  const auto capacity = static_cast<std::uint64_t>(change.now->header.maxMessages);
  least += (remainder + capacity - least % capacity) % capacity;
  if (least > most) return std::nullopt;
  most -= (most + capacity - remainder) % capacity;
  return Loss{least - change.returned, most - change.returned};
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
  std::uint64_t least = rewrites == 0 ? change.Numbered() : change.returned;
  const std::int64_t more = std::int64_t{now.messageCount} - before.messageCount;
  if (more < 0) return std::nullopt;
  if (least < change.returned) return std::nullopt;
  if (!change.now->Full()) {
    const auto came = static_cast<std::uint64_t>(more);
    if (came < least || came > most) return std::nullopt;
    return Loss{came - change.returned, came - change.returned};
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
  // All but the clear were appends.
  const std::uint64_t appends = change.Changes() - 1;
  const auto mostOfOne = static_cast<std::uint64_t>(change.now->header.maxMessages) - 1;
  if (mostOfOne < kUnbounded / std::max<std::uint64_t>(appends, 1) && numbered > appends * mostOfOne)
    return std::nullopt;
  if (!change.ring.empty() && At(change, 0).sequence + change.ring.size() != change.now->header.nextSequence)
    return std::nullopt;
  return Loss{most, most};
}

std::optional<Loss> IfRewritten(const RingChange& change) {
  if (change.Rewrites() == InsertionsSeen(change)) return std::nullopt;
  if (!change.now->Full()) {
    return change.Rewrites() > 1 && CanHaveBeenEmpty(change) ? std::optional(kUnknown) : std::nullopt;
  }
  if (BlockRises(change)) return std::nullopt;
  if (change.Changes() > 1) return kUnknown;
  if (change.Numbered() > 0) return std::nullopt;
  // One flush, so everything that it wrote is still there. Only a burst that replaced the whole ring may have
  // held more messages than the ring: those never reached the file, and no counter shows them.
  return change.knownInRing == 0 ? kUnknown : Loss{0, change.doubtful};
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
