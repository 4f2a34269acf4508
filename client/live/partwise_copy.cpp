#include "client/live/partwise_copy.h"

#include <algorithm>

#include "client/log/header_counters.h"
#include "client/log/ring.h"

namespace TamLogClient {

namespace {

// Returns whether a slot that shows number 0 in both states may hold another message. That is so when number
// 0 itself was given in between, and when the ring may have been rewritten as a whole, which gives no
// numbers. A single change that gave numbers or emptied the log was no such rewrite.
bool ZerosMayDiffer(const LogFileHeader& before, const LogFileHeader& now) {
  if (before.nextSequence == 0 && now.nextSequence != 0) return true;
  if (before.rewriteCount == now.rewriteCount) return false;
  const bool oneChange = now.changeCount == before.changeCount + 1;
  return !oneChange || (now.nextSequence == before.nextSequence && now.messageCount != 0);
}

}  // namespace

PartwiseCopy::PartwiseCopy(const LogMemory& memory, LogSnapshot& filled, std::size_t slotsOfPart)
    : log(&memory),
      snapshot(&filled),
      partSlots(static_cast<std::int64_t>(slotsOfPart)),
      copied(filled.slots.size(), 0),
      numbers(slotsOfPart) {}

std::optional<Status> PartwiseCopy::Run(std::uint32_t timeoutMs) {
  const std::uint64_t deadline = log->Now() + timeoutMs;
  const auto capacity = static_cast<std::int64_t>(snapshot->slots.size());
  for (std::int64_t first = 0; first < capacity; first += partSlots) {
    const std::int64_t end = std::min(first + partSlots, capacity);
    const auto status =
        Step(deadline, [&](ConsistentRead& read) { return CopyPart(read.Header(), first, end); });
    if (status != Status::Ok) return status;
  }
  const auto status = Step(deadline, [this](ConsistentRead& read) { return CopyChanged(read); });
  if (status == Status::Ok) snapshot->header = last;
  return status;
}

template <typename Work>
std::optional<Status> PartwiseCopy::Step(std::uint64_t deadline, Work work) {
  const bool first = !lastEnd;
  do {
    ConsistentRead read(*log);
    const std::optional<Status> begun = read.Begin(Remaining(deadline));
    if (!begun) continue;
    if (begun != Status::Ok) return begun;
    if (!Continues(read.Header())) return std::nullopt;
    if (!first && ZerosMayDiffer(last, read.Header())) zerosMayDiffer = true;
    if (!work(read)) return Status::InPage;
    const std::uint64_t beforeEnd = log->Now();
    const std::optional<Status> ended = read.End();
    if (!ended) continue;
    if (ended != Status::Ok) return ended;
    if (IsTooLate()) return std::nullopt;
    last = read.Header();
    lastEnd = beforeEnd;
    return Status::Ok;
  } while (Remaining(deadline) > 0 && !IsTooLate());
  return Remaining(deadline) > 0 ? std::nullopt : std::optional(Status::TimedOut);
}

// Returns whether the last consistent read was so long ago that the log may have been emptied since.
bool PartwiseCopy::IsTooLate() const {
  return lastEnd && log->Now() - *lastEnd > ConsistentRead::kLongestMs;
}

std::uint32_t PartwiseCopy::Remaining(std::uint64_t deadline) const {
  const std::uint64_t now = log->Now();
  return now < deadline ? static_cast<std::uint32_t>(deadline - now) : 0;
}

bool PartwiseCopy::Continues(const LogFileHeader& now) const {
  return now.maxMessages == static_cast<std::int64_t>(snapshot->slots.size()) &&
         now.nextSequence >= last.nextSequence && now.changeCount >= last.changeCount;
}

bool PartwiseCopy::CopyPart(const LogFileHeader& header, std::int64_t first, std::int64_t end) {
  std::fill(copied.begin() + first, copied.begin() + end, std::uint8_t{0});
  const auto runs = OccupiedRuns(header, log->SlotCount());
  return std::all_of(runs.begin(), runs.end(), [&](const SlotRun& run) {
    const std::int64_t from = std::max(run.begin, first);
    const std::int64_t to = std::min(run.end, end);
    if (from >= to) return true;
    const auto slot = static_cast<std::size_t>(from);
    if (!log->CopySlots(slot, static_cast<std::size_t>(to - from), &snapshot->slots[slot])) return false;
    std::fill(copied.begin() + from, copied.begin() + to, std::uint8_t{1});
    return true;
  });
}

bool PartwiseCopy::CopyChanged(ConsistentRead& read) {
  const auto runs = OccupiedRuns(read.Header(), log->SlotCount());
  return std::all_of(runs.begin(), runs.end(), [&](const SlotRun& run) { return CopyChangedRun(read, run); });
}

bool PartwiseCopy::CopyChangedRun(ConsistentRead& read, const SlotRun& run) {
  for (std::int64_t first = run.begin; first < run.end && !read.IsInvalidated(); first += partSlots) {
    const std::int64_t end = std::min(first + partSlots, run.end);
    if (!CopyChangedPart(static_cast<std::size_t>(first), static_cast<std::size_t>(end))) return false;
  }
  return true;
}

// What is copied here counts only when the read turns out consistent. When it does not, the copy is made
// again, so none of these slots is marked as copied.
bool PartwiseCopy::CopyChangedPart(std::size_t first, std::size_t end) {
  if (!log->CopyNumbers(first, end - first, numbers.data())) return false;
  for (std::size_t slot = first; slot < end; ++slot) {
    const std::uint64_t number = numbers[slot - first];
    const bool same = number == snapshot->slots[slot].sequence && (number != 0 || !zerosMayDiffer);
    if (copied[slot] != 0 && same) continue;
    copied[slot] = 0;
    if (!log->CopySlots(slot, 1, &snapshot->slots[slot])) return false;
  }
  return true;
}

}  // namespace TamLogClient
