#include "client/log/follower_comparison.h"

#include <algorithm>
#include <unordered_set>

namespace TamLogClient {

// A new message without a number can stand in the place of an equal known one only if the known one was
// dropped from the oldest end of the server's list meanwhile. The same holds for messages whose number is no
// longer known, and for those of a run that has ended. After another full rewrite, an apparent first copy
// that is still there is a message of its own; and of two equal known ones the older may have been a first
// copy.
void LogFollower::CountKnown(Comparison& comparison, const Candidate& candidate) const {
  ++comparison.knownInRing;
  const bool oldest = candidate.key == comparison.candidates.front().key;
  const auto entry = comparison.known.find(candidate.identity);
  const bool perhapsCopies = entry != comparison.known.end() && entry->second.perhapsCopies;
  if (candidate.number == 0 &&
      (oldest || mayBeOthers || candidate.key < completeFrom || candidate.copied || perhapsCopies)) {
    ++comparison.doubtful;
  }
}

bool LogFollower::OldSlotsDiffer(const Comparison& comparison) const {
  if (slots.empty()) return false;  // resumed
  const std::uint64_t next = NextNumber(last);
  const auto changed =
      std::count_if(comparison.candidates.begin(), comparison.candidates.end(),
                    [&](const Candidate& each) { return each.number < next && !IsUnchanged(each); });
  // The first message of a log has the number 0.
  return changed > (last.nextSequence == 0 ? 1 : 0);
}

RingChange LogFollower::ChangeOf(const Comparison& comparison) const {
  RingChange change;
  change.before = last;
  change.now = comparison.snapshot;
  change.ring = comparison.snapshot->RingOrder();
  change.oldSlotsDiffer = OldSlotsDiffer(comparison);
  change.knownInRing = comparison.knownInRing;
  change.doubtful = comparison.doubtful;
  change.lostMayComeBack = !RingHoldsAll();
  change.knownMayBeOthers = mayBeOthers || comparison.reopened;
  change.isReturned.resize(comparison.snapshot->slots.size());
  for (const Candidate& each : comparison.candidates) {
    change.isReturned[each.slot] = each.isNew;
    if (each.isNew) ++change.returnedInAll;
    if (each.number < last.nextSequence) continue;
    ++(each.isNew ? change.returned : change.leftOut);
  }
  if (change.ring.empty()) return change;
  const std::uint64_t oldestSlot = TimeKey(comparison.snapshot->slots[change.ring.front()].body);
  std::unordered_set<MessageIdentity, MessageIdentityHash> newer;  // two slots may hold the same message
  for (std::uint32_t slot = 0; slot < slots.size(); ++slot) {
    if (WasValid(slot) && slots[slot].key > oldestSlot) newer.insert(slots[slot].identity);
  }
  if (slots.empty() && RingHoldsAll()) {  // resumed: then all known ones stood in the ring
    for (const auto& [identity, each] : departed) {
      if (each.key > oldestSlot) newer.insert(identity);
    }
  }
  change.newerThanOldestSlot = newer.size();
  return change;
}

// Decides by counting which messages are new, where only their bytes identify them and the counters allow a
// single case. Returns the loss.
Loss LogFollower::Settle(Comparison& comparison) {
  if (comparison.run == Run::Unclear) mayBeOthers = true;
  if (comparison.run != Run::Same) return {0, std::nullopt};
  const RingChange change = ChangeOf(comparison);
  const LossCases cases = CasesOf(change);
  const bool allNew = cases.kept && !cases.cleared && !cases.rewritten && change.leftOut > 0 &&
                      cases.kept->least == change.leftOut && MostOverwritten(change) == 0;
  if (cases.cleared || (cases.rewritten && !comparison.snapshot->Full())) mayBeOthers = true;
  if (!cases.OnlyCleared() && !allNew) return cases.Bounds();
  for (Candidate& each : comparison.candidates) {
    if (each.number < last.nextSequence) continue;
    if (each.isNew) continue;
    each.isNew = true;
    --comparison.knownInRing;
    if (each.recognized) ++comparison.known[each.identity].count;
    if (each.first != nullptr) each.first->copied = false;
  }
  return CasesOf(ChangeOf(comparison)).Bounds();
}

}  // namespace TamLogClient
