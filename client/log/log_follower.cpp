#include "client/log/log_follower.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "client/log/follower_comparison.h"
#include "client/log/header_counters.h"
#include "client/log/ring.h"

namespace TamLogClient {

namespace {

// Returns whether `appended` appends lead from one sound header to the other.
bool RingMovedBy(const LogFileHeader& before, const LogFileHeader& now, std::uint64_t appended) {
  const auto capacity = static_cast<std::uint64_t>(now.maxMessages);
  const auto count = static_cast<std::uint64_t>(before.messageCount);
  return static_cast<std::uint64_t>(now.nextSlot) ==
             (static_cast<std::uint64_t>(before.nextSlot) + appended % capacity) % capacity &&
         static_cast<std::uint64_t>(now.messageCount) == count + std::min(appended, capacity - count);
}

}  // namespace

bool AppendsLeadTo(const LogFileHeader& before, const LogSnapshot& now) {
  std::uint64_t number = now.header.nextSequence;
  if (!RingMovedBy(before, now.header, number - before.nextSequence)) return false;
  const auto ring = now.RingOrder();
  for (auto slot = ring.rbegin(); slot != ring.rend() && number > before.nextSequence; ++slot) {
    if (now.slots[*slot].sequence != --number) return false;
  }
  return true;
}

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

FollowStep LogFollower::Next(const LogSnapshot& snapshot, bool reopened) {
  FollowStep step =
      OnlyAppended(snapshot, reopened) ? TakeAppended(snapshot) : TakeRewritten(snapshot, reopened);
  MarkLate(snapshot, step);
  return step;
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
  if (!AppendsLeadTo(last, snapshot)) return false;
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

FollowStep LogFollower::TakeRewritten(const LogSnapshot& snapshot, bool reopened) {
  FollowStep step;
  Comparison comparison;
  comparison.snapshot = &snapshot;
  comparison.reopened = reopened;
  comparison.known = CollectKnown();
  comparison.candidates = CandidatesOf(snapshot);
  comparison.run = RunOf(comparison);
  LossCases cases;
  if (comparison.run == Run::Same) {
    cases = CasesOf(ChangeOf(comparison));
    // Counters that no history of one run leads to show a restart that nobody noticed.
    if (!cases.Any()) comparison.run = Run::Unclear;
  }
  if (comparison.run != Run::Same || cases.rewritten) {
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
