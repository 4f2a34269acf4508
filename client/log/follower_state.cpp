#include "client/log/log_follower.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "client/log/follower_comparison.h"
#include "client/log/ring.h"

namespace TamLogClient {

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
  for (auto& [identity, each] : known)
    each.perhapsCopies = each.unnumbered > 0 && each.count > each.unnumbered;
  return known;
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

}  // namespace TamLogClient
