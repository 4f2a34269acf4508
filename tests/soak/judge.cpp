#include "tests/soak/judge.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace Soak {

namespace {

// The flush that is under way at the moment of a copy may already have passed a message's place: of two later
// flushes at most one can have done so.
constexpr std::uint64_t kFlushesUntilWritten = 2;

constexpr const char* kNames[kVerdicts] = {"stored",
                                           "filtered",
                                           "overwritten",
                                           "overwritten by bursts",
                                           "refused",
                                           "pending at restarts",
                                           "cleared unseen",
                                           "not stored while filters changed",
                                           "unanswered and not stored",
                                           "LOST",
                                           "STORED THOUGH FILTERED",
                                           "STORED THOUGH REFUSED"};

}  // namespace

const char* VerdictName(Verdict verdict) {
  return kNames[static_cast<std::size_t>(verdict)];
}

Judge::Judge(std::vector<Look> allLooks, std::vector<Interruption> allInterruptions,
             std::vector<FilterChange> allChanges)
    : looks(std::move(allLooks)),
      interruptions(std::move(allInterruptions)),
      changes(std::move(allChanges)) {}

Verdict Judge::Of(const Sent& message, bool seen) const {
  if (message.outcome == Outcome::Refused) return seen ? Verdict::StoredThoughRefused : Verdict::Refused;
  if (message.outcome == Outcome::Unanswered) return seen ? Verdict::Stored : Verdict::Unanswered;
  const Filter filter = FilterOf(message);
  if (seen) return filter == Filter::Drops ? Verdict::StoredThoughFiltered : Verdict::Stored;
  if (filter == Filter::Drops) return Verdict::Filtered;
  if (filter == Filter::Unsure) return Verdict::FiltersChanging;
  return WhyUnseen(message);
}

// The answer is certain only when no request that changes filters was under way during the message's own.
Judge::Filter Judge::FilterOf(const Sent& message) const {
  const auto later = std::partition_point(
      changes.begin(), changes.end(), [&](const FilterChange& change) { return change.end < message.sent; });
  if (later != changes.end() && later->begin <= message.answered) return Filter::Unsure;
  if (later == changes.begin()) return Filter::Keeps;
  return std::prev(later)->after.Keeps(message.id) ? Filter::Keeps : Filter::Drops;
}

// Returns the first copy of the log that has to hold the messages accepted at `accepted`, and the last one
// that need not; null when the log was closed before there was one.
const Look* Judge::DueIn(Moment accepted, const Look*& before) const {
  const auto first = std::partition_point(looks.begin(), looks.end(),
                                          [&](const Look& look) { return look.begin <= accepted; });
  before = first == looks.end() ? nullptr : &*first;
  for (auto look = first; look != looks.end() && look->opening == first->opening; ++look) {
    if (look->changeCount >= first->changeCount + kFlushesUntilWritten) return &*look;
  }
  return nullptr;
}

const Interruption* Judge::Between(Moment from, Moment to) const {
  const auto first = std::partition_point(interruptions.begin(), interruptions.end(),
                                          [&](const Interruption& each) { return each.to < from; });
  return first != interruptions.end() && first->from <= to ? &*first : nullptr;
}

Verdict Judge::WhyUnseen(const Sent& message) const {
  const Look* before = nullptr;
  const Look* const due = DueIn(message.answered, before);
  const Moment until = due != nullptr ? due->end : std::numeric_limits<Moment>::max();
  if (const Interruption* const dropped = Between(message.sent, until); dropped != nullptr) {
    return dropped->kind == Interruption::Kind::Clear ? Verdict::Cleared : Verdict::PendingAtRestart;
  }
  if (due == nullptr || !due->full) return Verdict::Lost;
  if (message.key <= due->oldestKey) return Verdict::Overwritten;
  return due->rewriteCount > before->rewriteCount ? Verdict::OverwrittenByBurst : Verdict::Lost;
}

std::uint64_t Account::Failures() const {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < kVerdicts; ++i) {
    if (IsFailure(static_cast<Verdict>(i))) sum += count[i];
  }
  return sum;
}

std::uint64_t Account::Uncertain() const {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < kVerdicts; ++i) {
    if (IsUncertain(static_cast<Verdict>(i))) sum += count[i];
  }
  return sum;
}

std::string Account::Text() const {
  std::string text = std::to_string(sent) + " sent";
  const char* separator = " = ";
  for (std::size_t i = 0; i < kVerdicts; ++i) {
    if (count[i] == 0 && IsFailure(static_cast<Verdict>(i))) continue;
    text += separator + std::to_string(count[i]) + " " + kNames[i];
    separator = " + ";
  }
  return text;
}

}  // namespace Soak
