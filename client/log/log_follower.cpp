#include "client/log/log_follower.h"

#include <algorithm>
#include <cstddef>
#include <set>
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

// The counters of one run of the log never fall.
bool CountersGoOn(const LogFileHeader& before, const LogFileHeader& now) {
  return now.maxMessages == before.maxMessages && now.changeCount >= before.changeCount &&
         now.rewriteCount >= before.rewriteCount && now.nextSequence >= before.nextSequence;
}

// Messages without a number hold 0, so 0 is not compared.
std::uint64_t NextNumber(const LogFileHeader& header) {
  return std::max<std::uint64_t>(header.nextSequence, 1);
}

struct Rewrite {
  bool goesOn = false;          // same run of the log
  bool hadMessages = false;     // the snapshot before was not empty
  bool regular = false;         // the ring of this snapshot has no backward stretch
  std::uint64_t fresh = 0;      // messages not known before
  std::uint64_t surviving = 0;  // messages known before
  bool doubtful = false;        // messages that may have been known before were left out
};

// Returns whether no flush between the two snapshots can have rewritten the whole ring: such a flush assigns
// no numbers, and its backward stretch disappears only after nearly a whole ring of numbers.
bool RingWasKept(const LogFileHeader& before, const LogSnapshot& now, bool regular) {
  const std::uint64_t numbered = now.header.nextSequence - before.nextSequence;
  if (!now.Full()) return true;
  if (now.header.changeCount - before.changeCount <= 1) return numbered > 0;
  return regular && numbered + 2 < static_cast<std::uint64_t>(now.header.maxMessages);
}

// An insertion into a ring that was rewritten backwards writes messages of the stretch a second time while
// the first copy is still there. The second copies are in the forward part at the newest end of the ring.
// Returns their slots. (Equal messages on both sides of the border are taken for copies, too.)
std::set<std::uint32_t> SecondCopies(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& ring) {
  std::set<std::uint32_t> copies;
  std::size_t forward = ring.size();
  while (forward > 1 && IsRegular(snapshot, {ring[forward - 2], ring[forward - 1]})) --forward;
  if (forward <= 1) return copies;
  // The last slot of the stretch can look like the first of the forward part; that one is never a copy.
  std::unordered_map<MessageIdentity, std::uint32_t, MessageIdentityHash> stretch;
  for (std::size_t i = 0; i < forward; ++i) ++stretch[IdentityOf(snapshot.slots[ring[i]].body)];
  for (std::size_t i = forward; i < ring.size(); ++i) {
    const auto entry = stretch.find(IdentityOf(snapshot.slots[ring[i]].body));
    if (entry == stretch.end() || entry->second == 0) continue;
    --entry->second;
    copies.insert(ring[i]);
  }
  return copies;
}

// Returns how many messages may have come and gone between two snapshots when slots were rewritten.
Loss LossOfRewrite(const LogFileHeader& before, const LogSnapshot& now, const Rewrite& rewrite) {
  const Loss none;
  const Loss unknown{0, std::nullopt};
  if (rewrite.doubtful) return unknown;
  if (rewrite.surviving > 0 && !now.Full()) return none;  // a ring that was never full drops nothing
  if (!rewrite.goesOn || !now.HeaderIsSound()) return unknown;
  const std::uint64_t changes = now.header.changeCount - before.changeCount;
  const std::uint64_t rewrites = now.header.rewriteCount - before.rewriteCount;
  const std::uint64_t numbered = now.header.nextSequence - before.nextSequence;
  // Plain appends, each with its number.
  if (rewrites == 0 && numbered >= rewrite.fresh) return {numbered - rewrite.fresh, numbered - rewrite.fresh};
  // Messages that survived show that the log was not emptied. For a message to come and go, a whole ring of
  // numbers is assigned: its own, those after its place, and those of the messages that push it out.
  if (rewrite.surviving > 0 && RingWasKept(before, now, rewrite.regular)) return none;
  if (changes <= 1) {
    // One operation, so everything that it wrote is still there. Only a burst that replaced the whole ring
    // may have held more messages than the ring: those never reached the file, and no counter shows them.
    const bool replaced = now.Full() && rewrite.surviving == 0 && numbered == 0;
    return replaced ? unknown : none;
  }
  // The ring was emptied, and that was the only rewrite: all else were plain appends, each with its number.
  const bool clearedOnce = rewrites == 1 && rewrite.hadMessages && rewrite.surviving == 0 && !now.Full();
  if (clearedOnce && numbered >= rewrite.fresh) return {numbered - rewrite.fresh, numbered - rewrite.fresh};
  return unknown;
}

}  // namespace

void LogFollower::Start(const LogSnapshot& snapshot) {
  departed.clear();
  resumed = false;
  any = false;
  newestKey = 0;
  suspect = true;
  suspectUntil = NextNumber(snapshot.header);
  Remember(snapshot, {});
  for (const std::uint32_t slot : snapshot.RingOrder()) {
    newestKey = std::max(newestKey, keys[slot]);
    any = true;
  }
}

void LogFollower::Resume(const FollowerMemory& memory) {
  identities.clear();
  keys.clear();
  departed.clear();
  for (const KnownMessage& known : memory.known) departed[known.identity] = {known.count, known.key};
  last = memory.header;
  suspect = memory.suspect;
  suspectUntil = memory.suspectUntil;
  any = memory.any;
  newestKey = memory.newestKey;
  completeFrom = memory.completeFrom;
  resumed = true;
}

FollowerMemory LogFollower::Remembered(std::size_t mostMessages) const {
  FollowerMemory memory;
  memory.header = last;
  memory.suspect = suspect;
  memory.suspectUntil = suspectUntil;
  memory.any = any;
  memory.newestKey = newestKey;
  for (const auto& [identity, known] : CollectKnown()) {
    if (known.count > 0) memory.known.push_back({identity, known.key, known.count});
  }
  if (resumed) memory.completeFrom = completeFrom;
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

bool LogFollower::WasValid(std::uint32_t slot) const {
  return slot < identities.size() && HoldsMessage(last, slot);
}

bool LogFollower::OnlyAppended(const LogSnapshot& snapshot, bool reopened) const {
  const LogFileHeader& now = snapshot.header;
  if (!snapshot.HeaderIsSound() || !CountersGoOn(last, now) || now.rewriteCount != last.rewriteCount)
    return false;
  if (identities.size() != snapshot.slots.size()) return false;
  return !reopened || OldSlotsUnchanged(snapshot, now.nextSequence - last.nextSequence);
}

// After a reopening the counters may agree by chance: at least one message has to be found again, and so do
// all that should still be in the ring.
bool LogFollower::OldSlotsUnchanged(const LogSnapshot& snapshot, std::uint64_t appended) const {
  const auto ring = snapshot.RingOrder();
  if (appended >= ring.size()) return ring.empty() && last.messageCount == 0;
  const auto old = static_cast<std::ptrdiff_t>(ring.size() - appended);
  return std::all_of(ring.begin(), ring.begin() + old, [&](std::uint32_t slot) {
    return WasValid(slot) && identities[slot] == IdentityOf(snapshot.slots[slot].body);
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
    const std::uint32_t slot = *at;
    if (suspect && WasValid(slot)) {
      Known& known = departed[identities[slot]];
      ++known.count;
      known.key = keys[slot];
    }
    identities[slot] = IdentityOf(snapshot.slots[slot].body);
    keys[slot] = TimeKey(snapshot.slots[slot].body);
    step.messages.push_back({slot, false});
  }
  last = snapshot.header;
  EndSuspicion(snapshot, ring);
  return step;
}

LogFollower::KnownMessages LogFollower::CollectKnown() const {
  KnownMessages known = departed;
  for (std::uint32_t slot = 0; slot < identities.size(); ++slot) {
    if (!WasValid(slot)) continue;
    Known& entry = known[identities[slot]];
    ++entry.count;
    entry.key = keys[slot];
  }
  return known;
}

// After a reopening, counters that continue prove nothing by themselves. Together with a message that is
// still in the log they do, because a new log keeps no message.
bool LogFollower::SameRun(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& ring,
                          const KnownMessages& known, bool reopened) const {
  if (!CountersGoOn(last, snapshot.header)) return false;
  // An empty log has no message to recognize it by; reporting a loss at every first use would be a false
  // alarm.
  const bool sinceEmpty = last.messageCount == 0 && last.rewriteCount == snapshot.header.rewriteCount;
  if (resumed && sinceEmpty) return true;
  return !reopened || std::any_of(ring.begin(), ring.end(), [&](std::uint32_t slot) {
    return known.contains(IdentityOf(snapshot.slots[slot].body));
  });
}

bool LogFollower::BelowMemory(const LogMessage& message) const {
  return resumed && TimeKey(message.body) < completeFrom;
}

FollowStep LogFollower::TakeRewritten(const LogSnapshot& snapshot, bool reopened) {
  FollowStep step;
  KnownMessages known = CollectKnown();
  Rewrite rewrite;
  rewrite.hadMessages = last.messageCount > 0;
  const auto ring = snapshot.RingOrder();
  const bool countersGoOn = CountersGoOn(last, snapshot.header);
  rewrite.goesOn = SameRun(snapshot, ring, known, reopened);
  rewrite.regular = IsRegular(snapshot, ring);
  if (!rewrite.goesOn || !RingWasKept(last, snapshot, rewrite.regular)) {
    suspect = true;
    suspectUntil = NextNumber(snapshot.header);
  }
  const auto copies = suspect ? SecondCopies(snapshot, ring) : std::set<std::uint32_t>{};
  for (const std::uint32_t slot : OrderMessages(snapshot).oldestFirst) {
    if (copies.contains(slot)) continue;
    const auto entry = known.find(IdentityOf(snapshot.slots[slot].body));
    if (entry != known.end() && entry->second.count > 0) {
      --entry->second.count;
      ++rewrite.surviving;
      continue;
    }
    if (countersGoOn && BelowMemory(snapshot.slots[slot])) {
      // Its number shows whether it is old, unless the log is a new one or the ring was written again.
      const std::uint64_t number = snapshot.slots[slot].sequence;
      const bool numbered = number != 0 || snapshot.header.rewriteCount == last.rewriteCount;
      const bool old = numbered && number < last.nextSequence;
      if (old) ++rewrite.surviving;
      rewrite.doubtful = rewrite.doubtful || !old || !rewrite.goesOn;
      continue;
    }
    step.messages.push_back({slot, false});
  }
  rewrite.fresh = step.messages.size();
  step.cleared = rewrite.hadMessages && rewrite.surviving == 0 && !snapshot.Full();
  step.loss = LossOfRewrite(last, snapshot, rewrite);
  if (step.cleared) suspect = false;
  step.rewritten = snapshot.header.rewriteCount != last.rewriteCount;
  resumed = false;
  Remember(snapshot, step.cleared ? KnownMessages{} : std::move(known));
  return step;
}

void LogFollower::Remember(const LogSnapshot& snapshot, KnownMessages gone) {
  const auto ring = snapshot.RingOrder();
  last = snapshot.header;
  last.messageCount = static_cast<std::int32_t>(ring.size());  // a damaged header may claim more
  identities.assign(snapshot.slots.size(), {});
  keys.assign(snapshot.slots.size(), 0);
  for (const std::uint32_t slot : ring) {
    identities[slot] = IdentityOf(snapshot.slots[slot].body);
    keys[slot] = TimeKey(snapshot.slots[slot].body);
  }
  EndSuspicion(snapshot, ring);
  departed.clear();
  if (!suspect) return;
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
  departed = std::move(gone);
}

void LogFollower::EndSuspicion(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& ring) {
  if (!suspect) return;
  suspect = !snapshot.Full() || !std::all_of(ring.begin(), ring.end(), [&](std::uint32_t slot) {
    return snapshot.slots[slot].sequence >= suspectUntil;
  });
  if (!suspect) departed.clear();
}

void LogFollower::MarkLate(const LogSnapshot& snapshot, FollowStep& step) {
  std::stable_sort(step.messages.begin(), step.messages.end(), [&](const NewMessage& a, const NewMessage& b) {
    return TimeKey(snapshot.slots[a.slot].body) < TimeKey(snapshot.slots[b.slot].body);
  });
  std::uint64_t newest = 0;
  for (NewMessage& message : step.messages) {
    const std::uint64_t key = TimeKey(snapshot.slots[message.slot].body);
    message.late = any && key < newestKey;
    newest = std::max(newest, key);
  }
  // Not the newest of all time: one message from a wrong clock would make every later one late.
  if (!step.messages.empty()) newestKey = newest;
  any = any || !step.messages.empty();
}

}  // namespace TamLogClient
