#include "client/log/follower_comparison.h"

#include <algorithm>
#include <cstddef>

#include "client/log/header_counters.h"

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

// Returns how many of the ring's oldest slots can be left of a full rewrite: all but the newest ones whose
// times and numbers rise. (The last one left can look like the first of those; no message has a second copy
// there.)
std::size_t BlockEnd(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& ring) {
  std::size_t end = ring.size();
  while (end > 1 && IsRegular(snapshot, {ring[end - 2], ring[end - 1]})) --end;
  return end;
}

}  // namespace

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

// A message that has an old number and is not known shows another run of the log, and so do counters that do
// not fit: as long as nothing is rewritten, OnlyAppended takes the snapshot. After a reopening, counters that
// continue prove nothing by themselves. Together with a message that still has its number they do: a new log
// numbers its messages from 0 on.
LogFollower::Run LogFollower::RunOf(const Comparison& comparison) const {
  if (!comparison.snapshot->HeaderIsSound() || !CountersGoOn(last, comparison.snapshot->header))
    return Run::Other;
  const LogFileHeader& now = comparison.snapshot->header;
  if (now.rewriteCount == last.rewriteCount && (!slots.empty() || !AppendsLeadTo(last, *comparison.snapshot)))
    return Run::Unclear;
  // Each rewrite is a change.
  if (now.changeCount - last.changeCount < now.rewriteCount - last.rewriteCount) return Run::Unclear;
  const auto& candidates = comparison.candidates;
  const bool another = std::any_of(candidates.begin(), candidates.end(), [&](const Candidate& each) {
    return each.oldNumber && each.key >= completeFrom && !comparison.known.contains(each.identity);
  });
  if (another) return Run::Unclear;
  if (!comparison.reopened) return Run::Same;
  const bool same = std::any_of(candidates.begin(), candidates.end(), [&](const Candidate& each) {
    const auto entry = comparison.known.find(each.identity);
    if (!each.oldNumber || entry == comparison.known.end()) return false;
    return each.number == 0 ? entry->second.unnumbered > 0 : entry->second.number == each.number;
  });
  return same ? Run::Same : Run::Unclear;
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
    if (isCopy) {
      candidate.first = first.back();
      candidate.first->copied = true;
      first.pop_back();
    }
  }
  candidate.isNew = !candidate.recognized && !isCopy && candidate.key >= completeFrom;
  if (!candidate.isNew) CountKnown(comparison, candidate);
}

}  // namespace TamLogClient
