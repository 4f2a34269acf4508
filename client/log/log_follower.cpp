#include "client/log/log_follower.h"

#include <algorithm>
#include <cstddef>
#include <unordered_set>
#include <utility>

#include "client/log/ring.h"

namespace TamLogClient {

namespace {

// In a ring without a backward stretch neither times nor numbers fall from the oldest slot to the newest. (A
// stretch of one or two slots can look the same.)
bool IsRegular(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& ring) {
  for (std::size_t i = 1; i < ring.size(); ++i) {
    const LogMessageView older(snapshot.slots[ring[i - 1]]);
    const LogMessageView newer(snapshot.slots[ring[i]]);
    if (newer.Key() < older.Key() || newer.Sequence() <= older.Sequence()) return false;
  }
  return true;
}

// The counters of one run of the log never fall. Those of a damaged header mean nothing.
bool CountersGoOn(const LogFileHeader& before, const LogFileHeader& now) {
  return RingIsSound(before) && now.maxMessages == before.maxMessages &&
         now.changeCount >= before.changeCount && now.rewriteCount >= before.rewriteCount &&
         now.nextSequence >= before.nextSequence;
}

// Returns whether `appended` appends lead from one sound header to the other.
bool RingMovedBy(const LogFileHeader& before, const LogFileHeader& now, std::uint64_t appended) {
  const auto capacity = static_cast<std::uint64_t>(now.maxMessages);
  const auto count = static_cast<std::uint64_t>(before.messageCount);
  return static_cast<std::uint64_t>(now.nextSlot) ==
             (static_cast<std::uint64_t>(before.nextSlot) + appended % capacity) % capacity &&
         static_cast<std::uint64_t>(now.messageCount) == count + std::min(appended, capacity - count);
}

// Messages without a number hold 0, so 0 is not compared.
std::uint64_t NextNumber(const LogFileHeader& header) {
  return std::max<std::uint64_t>(header.nextSequence, 1);
}

// Returns how many of the ring's oldest slots can be left of a full rewrite: all but the newest ones whose
// times and numbers rise. (The last one left can look like the first of those; no message has a second copy
// there.)
std::size_t BlockEnd(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& ring) {
  std::size_t end = ring.size();
  while (end > 1 && IsRegular(snapshot, {ring[end - 2], ring[end - 1]})) --end;
  return end;
}

}  // namespace

// A snapshot while it is compared with the known messages.
struct LogFollower::Comparison {
  const LogSnapshot* snapshot = nullptr;
  bool reopened = false;
  Run run = Run::Same;
  KnownMessages known;                // those that have not been recognized in the snapshot yet
  std::vector<Candidate> candidates;  // the messages of the snapshot, oldest first
  std::uint64_t knownInRing = 0;
  std::uint64_t doubtful = 0;
};

void LogFollower::Start(const LogSnapshot& snapshot) {
  departed.clear();
  completeFrom = 0;
  mayBeOthers = false;
  any = false;
  lastKey = 0;
  suspect = true;
  suspectUntil = NextNumber(snapshot.header);
  const std::vector<Candidate> candidates = CandidatesOf(snapshot);
  Remember(snapshot, candidates, {});
  any = !candidates.empty();
  if (any) lastKey = candidates.back().key;
}

void LogFollower::Resume(const FollowerMemory& memory) {
  slots.clear();
  departed.clear();
  firstCopies.clear();
  for (const KnownMessage& each : memory.known) {
    if (each.isFirstCopy) {
      firstCopies[each.identity].emplace(each.number, each.key);
    } else {
      departed[each.identity] = {each.count, each.unnumbered, each.key, each.number};
    }
  }
  last = memory.header;
  suspect = memory.suspect;
  suspectUntil = memory.suspectUntil;
  any = memory.any;
  lastKey = memory.lastKey;
  completeFrom = memory.completeFrom;
  mayBeOthers = memory.mayBeOthers;
}

FollowerMemory LogFollower::Remembered(std::size_t mostMessages) const {
  FollowerMemory memory;
  memory.header = last;
  memory.suspect = suspect;
  memory.suspectUntil = suspectUntil;
  memory.any = any;
  memory.lastKey = lastKey;
  memory.completeFrom = completeFrom;
  memory.mayBeOthers = mayBeOthers;
  for (const auto& [identity, each] : CollectKnown()) {
    if (each.count == 0) continue;
    memory.known.push_back(
        {identity, each.key, each.count, std::min(each.unnumbered, each.count), each.number});
  }
  for (const auto& [identity, copies] : firstCopies) {
    for (const auto& [number, key] : copies) memory.known.push_back({identity, key, 1, 0, number, true});
  }
  for (std::uint32_t slot = 0; slot < slots.size(); ++slot) {
    const Slot& each = slots[slot];
    if (each.copied && WasValid(slot))
      memory.known.push_back({each.identity, each.key, 1, 0, each.number, true});
  }
  if (memory.known.size() > mostMessages) {
    const auto cut = memory.known.begin() + static_cast<std::ptrdiff_t>(mostMessages);
    std::nth_element(memory.known.begin(), cut, memory.known.end(),
                     [](const KnownMessage& a, const KnownMessage& b) { return a.key > b.key; });
    // Messages with equal times stay together; otherwise some of them would count as new.
    memory.completeFrom = std::max(memory.completeFrom, cut->key);
    std::erase_if(memory.known, [&](const KnownMessage& known) { return known.key < memory.completeFrom; });
  }
  return memory;
}

FollowStep LogFollower::Next(const LogSnapshot& snapshot, bool reopened) {
  FollowStep step =
      OnlyAppended(snapshot, reopened) ? TakeAppended(snapshot) : TakeRewritten(snapshot, reopened);
  MarkLate(snapshot, step);
  return step;
}

bool LogFollower::RingHoldsAll() const {
  return !suspect || last.messageCount < last.maxMessages || last.nextSlot == 0;
}

bool LogFollower::WasValid(std::uint32_t slot) const {
  return slot < slots.size() && HoldsMessage(last, slot);
}

bool LogFollower::IsUnchanged(const Candidate& candidate) const {
  return WasValid(candidate.slot) && slots[candidate.slot].number == candidate.number &&
         slots[candidate.slot].identity == candidate.identity;
}

// After a reopening the counters may agree by chance: at least one message has to be found again, and so do
// all that should still be in the ring. Otherwise one of them is enough: it shows a restart that nobody
// noticed.
bool LogFollower::OnlyAppended(const LogSnapshot& snapshot, bool reopened) const {
  const LogFileHeader& now = snapshot.header;
  if (!snapshot.HeaderIsSound() || !CountersGoOn(last, now) || now.rewriteCount != last.rewriteCount)
    return false;
  if (slots.size() != snapshot.slots.size()) return false;
  const auto ring = snapshot.RingOrder();
  const std::uint64_t appended = now.nextSequence - last.nextSequence;
  if (!RingMovedBy(last, now, appended)) return false;
  std::uint64_t number = now.nextSequence;
  for (auto slot = ring.rbegin(); slot != ring.rend() && number > last.nextSequence; ++slot) {
    if (snapshot.slots[*slot].sequence != --number) return false;
  }
  if (appended >= ring.size()) return !reopened && (last.messageCount == 0 || appended > 0);
  const auto old = static_cast<std::ptrdiff_t>(ring.size() - appended);
  return std::all_of(reopened ? ring.begin() : ring.begin() + old - 1, ring.begin() + old,
                     [&](std::uint32_t slot) {
                       const LogMessage& message = snapshot.slots[slot];
                       return IsUnchanged({slot, IdentityOf(message.body), message.sequence});
                     });
}

FollowStep LogFollower::TakeAppended(const LogSnapshot& snapshot) {
  FollowStep step;
  const auto ring = snapshot.RingOrder();
  const std::uint64_t appended = snapshot.header.nextSequence - last.nextSequence;
  const std::uint64_t visible = std::min<std::uint64_t>(appended, ring.size());
  step.loss = {appended - visible, appended - visible};
  const auto first = static_cast<std::ptrdiff_t>(ring.size() - visible);
  for (auto at = ring.begin() + first; at != ring.end(); ++at) {
    const LogMessage& message = snapshot.slots[*at];
    if (suspect && WasValid(*at) && !slots[*at].copied) AddKnown(departed, *at);
    slots[*at] = {IdentityOf(message.body), TimeKey(message.body), message.sequence, false};
    step.messages.push_back({*at, false});
  }
  last = snapshot.header;
  EndSuspicion(snapshot, ring);
  return step;
}

void LogFollower::AddKnown(KnownMessages& known, std::uint32_t slot) const {
  Known& entry = known[slots[slot].identity];
  entry.key = slots[slot].key;
  ++entry.count;
  entry.stood = true;
  if (slots[slot].number == 0) {
    ++entry.unnumbered;
  } else {
    entry.number = std::max(entry.number, slots[slot].number);
  }
}

LogFollower::KnownMessages LogFollower::CollectKnown() const {
  KnownMessages known = departed;
  for (std::uint32_t slot = 0; slot < slots.size(); ++slot) {
    if (WasValid(slot) && !slots[slot].copied) AddKnown(known, slot);
  }
  return known;
}

std::vector<LogFollower::Candidate> LogFollower::CandidatesOf(const LogSnapshot& snapshot) const {
  const bool rewritten = snapshot.header.rewriteCount != last.rewriteCount;
  const auto ring = snapshot.RingOrder();
  std::vector<bool> appended(snapshot.slots.size());
  std::uint64_t numbered = snapshot.header.nextSequence - last.nextSequence;
  for (auto slot = ring.rbegin(); slot != ring.rend() && numbered > 0; ++slot, --numbered)
    appended[*slot] = true;
  std::vector<Candidate> candidates;
  for (const std::uint32_t slot : OrderMessages(snapshot).oldestFirst) {
    const LogMessage& message = snapshot.slots[slot];
    Candidate candidate;
    candidate.slot = slot;
    candidate.identity = IdentityOf(message.body);
    candidate.number = message.sequence;
    candidate.key = TimeKey(message.body);
    // Only a full ring can hold messages without a number.
    const bool hasNumber = message.sequence != 0 || !snapshot.Full();
    candidate.oldNumber = rewritten ? hasNumber && message.sequence < last.nextSequence : !appended[slot];
    candidates.push_back(candidate);
  }
  return candidates;
}

// After a reopening, counters that continue prove nothing by themselves. Together with a message that still
// has its number they do: a new log numbers its messages from 0 on. Without a reopening a message that has an
// old number and is not known shows a restart that nobody noticed.
LogFollower::Run LogFollower::RunOf(const Comparison& comparison) const {
  if (!comparison.snapshot->HeaderIsSound() || !CountersGoOn(last, comparison.snapshot->header))
    return Run::Other;
  const auto& candidates = comparison.candidates;
  const bool same = std::any_of(candidates.begin(), candidates.end(), [&](const Candidate& each) {
    const auto entry = comparison.known.find(each.identity);
    if (!each.oldNumber || entry == comparison.known.end()) return false;
    return each.number == 0 ? entry->second.unnumbered > 0 : entry->second.number == each.number;
  });
  if (comparison.reopened) return same ? Run::Same : Run::Unclear;
  const bool another = std::any_of(candidates.begin(), candidates.end(), [&](const Candidate& each) {
    return each.oldNumber && each.key >= completeFrom && !comparison.known.contains(each.identity);
  });
  return another ? Run::Unclear : Run::Same;
}

bool LogFollower::Recognize(Comparison& comparison, const Candidate& candidate) {
  const auto entry = comparison.known.find(candidate.identity);
  if (entry == comparison.known.end() || entry->second.count == 0) return false;
  --entry->second.count;
  if (candidate.number == 0 && entry->second.unnumbered > 0) --entry->second.unnumbered;
  return true;
}

bool LogFollower::RecognizeCopy(const Candidate& candidate) {
  const auto copies = firstCopies.find(candidate.identity);
  if (copies == firstCopies.end()) return false;
  const auto copy = copies->second.find(candidate.number);
  if (copy == copies->second.end()) return false;
  copies->second.erase(copy);
  return true;
}

// The messages whose numbers, or whose slots, show that they were in the log before. One that is not known
// was lost before.
void LogFollower::TakeOldNumbers(Comparison& comparison) {
  const LogFileHeader& now = comparison.snapshot->header;
  const bool oneRewrite = now.changeCount - last.changeCount == 1 && now.rewriteCount != last.rewriteCount &&
                          now.nextSequence == last.nextSequence;
  for (Candidate& each : comparison.candidates) {
    const bool unchanged = !oneRewrite && IsUnchanged(each);
    each.copied = slots.empty() ? !oneRewrite && RecognizeCopy(each) : unchanged && slots[each.slot].copied;
    if (!each.oldNumber && !each.copied && !(each.number == 0 && unchanged)) continue;
    const bool recognized = each.copied || Recognize(comparison, each);
    // In another run the number means nothing.
    if (!recognized && comparison.run == Run::Unclear) continue;
    each.settled = true;
    each.isNew = !recognized && each.key >= completeFrom;
    if (!each.isNew) CountKnown(comparison, each);
  }
}

// Returns whether counters and numbers prove that the message came since the last snapshot.
bool LogFollower::IsCertainlyNew(const Comparison& comparison, const Candidate& candidate) const {
  if (comparison.run != Run::Same) return false;
  const LogFileHeader& now = comparison.snapshot->header;
  if (now.rewriteCount == last.rewriteCount) return !candidate.oldNumber;
  if (candidate.number == 0) {
    // A message that once got a number keeps one.
    const auto entry = comparison.known.find(candidate.identity);
    return candidate.key >= completeFrom && entry != comparison.known.end() && entry->second.unnumbered == 0;
  }
  // An insertion writes the new message first.
  return now.changeCount - last.changeCount == 1 && candidate.number == last.nextSequence;
}

// An insertion into a ring that was rewritten backwards writes messages of the rewritten block a second time
// while the first copies are still there. Returns the first copies that may have a second one from now on.
LogFollower::FirstCopies LogFollower::FirstCopiesIn(Comparison& comparison) const {
  FirstCopies copies;
  const LogSnapshot& snapshot = *comparison.snapshot;
  if (!suspect || !snapshot.Full() || snapshot.header.nextSlot == 0) return copies;
  const auto ring = snapshot.RingOrder();
  std::vector<bool> inBlock(snapshot.slots.size());
  const std::size_t end = BlockEnd(snapshot, ring);
  for (std::size_t i = 0; i < end && end > 1; ++i) inBlock[ring[i]] = true;
  for (Candidate& each : comparison.candidates) {
    each.inBlock = inBlock[each.slot];
    if (each.inBlock && !each.copied) copies[each.identity].push_back(&each);
  }
  return copies;
}

// Messages without a number come first: a message that was inserted may equal one of them, never the reverse.
void LogFollower::TakeOthers(Comparison& comparison) const {
  FirstCopies copies = FirstCopiesIn(comparison);
  for (const bool numbered : {false, true}) {
    for (Candidate& each : comparison.candidates) {
      if (!each.settled && (each.number != 0) == numbered) TakeOther(comparison, each, copies);
    }
  }
}

void LogFollower::TakeOther(Comparison& comparison, Candidate& candidate, FirstCopies& copies) const {
  if (IsCertainlyNew(comparison, candidate)) {
    candidate.isNew = true;
    return;
  }
  candidate.recognized = Recognize(comparison, candidate);
  bool isCopy = false;
  if (!candidate.recognized && !candidate.inBlock) {
    std::vector<Candidate*>& first = copies[candidate.identity];
    isCopy = !first.empty();
    if (isCopy) first.back()->copied = true;
    if (isCopy) first.pop_back();
  }
  candidate.isNew = !candidate.recognized && !isCopy && candidate.key >= completeFrom;
  if (!candidate.isNew) CountKnown(comparison, candidate);
}

// Of messages without a number a new one can stand in the place of an equal known one only if the known one
// was dropped from the oldest end of the server's list meanwhile.
// The same holds for messages whose number is not known any more, and for those of a run that has ended.
// After another full rewrite, what looks like a first copy that is still there is a message of its own.
void LogFollower::CountKnown(Comparison& comparison, const Candidate& candidate) const {
  ++comparison.knownInRing;
  const bool oldest = candidate.key == comparison.candidates.front().key;
  if (candidate.number == 0 && (oldest || mayBeOthers || candidate.key < completeFrom || candidate.copied)) {
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

// Settles by counting which messages are new, where they are recognized by their bytes alone and the counters
// allow one case only. Returns the loss.
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
  }
  return CasesOf(ChangeOf(comparison)).Bounds();
}

FollowStep LogFollower::TakeRewritten(const LogSnapshot& snapshot, bool reopened) {
  FollowStep step;
  Comparison comparison;
  comparison.snapshot = &snapshot;
  comparison.reopened = reopened;
  comparison.known = CollectKnown();
  comparison.candidates = CandidatesOf(snapshot);
  comparison.run = RunOf(comparison);
  if (comparison.run != Run::Same || CasesOf(ChangeOf(comparison)).rewritten) {
    suspect = true;
    suspectUntil = NextNumber(snapshot.header);
  }
  if (comparison.run != Run::Other) TakeOldNumbers(comparison);
  TakeOthers(comparison);
  step.loss = Settle(comparison);
  step.cleared = last.messageCount > 0 && comparison.knownInRing == 0 && !snapshot.Full();
  step.rewritten = snapshot.header.rewriteCount != last.rewriteCount;
  for (const Candidate& each : comparison.candidates) {
    if (each.isNew) step.messages.push_back({each.slot, false});
  }
  if (step.cleared) suspect = false;
  if (step.cleared || comparison.run == Run::Other) comparison.known.clear();
  Remember(snapshot, comparison.candidates, std::move(comparison.known));
  return step;
}

void LogFollower::Remember(const LogSnapshot& snapshot, const std::vector<Candidate>& candidates,
                           KnownMessages gone) {
  const auto ring = snapshot.RingOrder();
  last = snapshot.header;
  last.messageCount = static_cast<std::int32_t>(ring.size());  // a damaged header may claim more
  firstCopies.clear();
  slots.assign(snapshot.slots.size(), {});
  for (const Candidate& each : candidates)
    slots[each.slot] = {each.identity, each.key, each.number, each.copied};
  departed.clear();
  EndSuspicion(snapshot, ring);
  if (RingHoldsAll()) return;
  std::erase_if(gone, [](const auto& entry) { return entry.second.count == 0; });
  // The server can write again only its newest `maxMessages` messages: older ones never come back.
  if (gone.size() > snapshot.slots.size()) {
    std::vector<std::uint64_t> ages;
    ages.reserve(gone.size());
    for (const auto& entry : gone) ages.push_back(entry.second.key);
    const auto excess = static_cast<std::ptrdiff_t>(gone.size() - snapshot.slots.size());
    std::nth_element(ages.begin(), ages.begin() + excess, ages.end());
    const std::uint64_t oldestKept = ages[static_cast<std::size_t>(excess)];
    std::erase_if(gone, [oldestKept](const auto& entry) { return entry.second.key < oldestKept; });
  }
  // Any number of messages may have the same time.
  if (gone.size() > 2 * snapshot.slots.size())
    std::erase_if(gone, [](const auto& entry) { return !entry.second.stood; });
  for (auto& entry : gone) entry.second.stood = false;
  departed = std::move(gone);
}

void LogFollower::EndSuspicion(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& ring) {
  if (suspect) {
    suspect = !snapshot.Full() || !std::all_of(ring.begin(), ring.end(), [&](std::uint32_t slot) {
      return snapshot.slots[slot].sequence >= suspectUntil;
    });
  }
  if (!RingHoldsAll()) return;
  departed.clear();
  completeFrom = 0;
  mayBeOthers = false;
}

void LogFollower::MarkLate(const LogSnapshot& snapshot, FollowStep& step) {
  std::stable_sort(step.messages.begin(), step.messages.end(), [&](const NewMessage& a, const NewMessage& b) {
    return TimeKey(snapshot.slots[a.slot].body) < TimeKey(snapshot.slots[b.slot].body);
  });
  for (NewMessage& message : step.messages) {
    const std::uint64_t key = TimeKey(snapshot.slots[message.slot].body);
    message.late = any && key < lastKey;
    lastKey = key;
    any = true;
  }
}

}  // namespace TamLogClient
