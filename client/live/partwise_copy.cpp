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

// Returns for how many milliseconds before `now` was read the log cannot have been emptied by a restart. A
// restart sets changeCount to 2 and rewriteCount to 1. Only a flush raises changeCount alone, and flushes
// come 200 ms after the start and after each other. Some changes are left to stops, which may count one, too.
// At most a second, because longer pauses are rare.
std::uint64_t SafeAgeMs(const LogFileHeader& now) {
  constexpr std::uint64_t kFlushMs = 200;
  constexpr std::uint64_t kMostFlushes = 5;
  constexpr std::uint64_t kAtStart = 1;
  constexpr std::uint64_t kOfStops = 4;
  const std::uint64_t counted = now.changeCount - std::min(now.changeCount, now.rewriteCount);
  const std::uint64_t flushes = counted - std::min(counted, kAtStart + kOfStops);
  return std::max<std::uint64_t>(std::min(flushes, kMostFlushes) * kFlushMs, ConsistentRead::kLongestMs);
}

}  // namespace

PartwiseCopy::PartwiseCopy(const LogMemory& memory, LogSnapshot& filled, std::size_t slotsOfPart)
    : log(&memory),
      snapshot(&filled),
      partSlots(static_cast<std::int64_t>(slotsOfPart)),
      copied(filled.slots.size(), 0),
      numbers(slotsOfPart),
      zerosOf((filled.slots.size() + slotsOfPart - 1) / slotsOfPart, 0) {}

std::optional<Status> PartwiseCopy::Run(std::uint32_t timeoutMs) {
  const std::uint64_t deadline = log->Now() + timeoutMs;
  do {
    for (std::size_t part = 0; part < zerosOf.size(); ++part) {
      const auto status = UpdatePart(part, deadline);
      if (status != Status::Ok) return status;
    }
    const auto status = Complete(deadline);
    if (status == Status::Ok) snapshot->header = last;
    if (status || otherLog) return status;
  } while (Remaining(deadline) > 0);
  return Status::Unsteady;
}

template <typename Work>
std::optional<Status> PartwiseCopy::Read(std::uint64_t deadline, Work work) {
  ConsistentRead read(*log);
  const std::optional<Status> begun = read.Begin(Remaining(deadline));
  if (begun != Status::Ok) return begun;
  otherLog = !IsSameLog(read.Header());
  if (otherLog) return std::nullopt;
  const std::uint32_t zerosNow = zeros + (lastEnd && ZerosMayDiffer(last, read.Header()) ? 1 : 0);
  if (!work(read, zerosNow)) return Status::InPage;
  const std::uint64_t beforeEnd = log->Now();
  const std::optional<Status> ended = read.End();
  if (ended != Status::Ok) return ended;
  otherLog = !IsSameLog(read.Header());
  if (otherLog) return std::nullopt;
  zeros = zerosNow;
  last = read.Header();
  lastEnd = beforeEnd;
  return Status::Ok;
}

std::optional<Status> PartwiseCopy::UpdatePart(std::size_t part, std::uint64_t deadline) {
  do {
    const auto status = Read(deadline, [&](ConsistentRead& read, std::uint32_t zerosNow) {
      const auto runs = RunsOf(part, read.Header());
      return std::all_of(runs.begin(), runs.end(),
                         [&](const SlotRun& run) { return CopyChanged(run, zerosOf[part] != zerosNow); });
    });
    if (status == Status::Ok) {
      zerosOf[part] = zeros;
      for (const SlotRun& run : RunsOf(part, last)) Mark(run, true);
    }
    if (status || otherLog) return status;
  } while (Remaining(deadline) > 0);
  return Status::Unsteady;
}

std::optional<Status> PartwiseCopy::Complete(std::uint64_t deadline) {
  return Read(deadline, [&](ConsistentRead& read, std::uint32_t zerosNow) {
    for (std::size_t part = 0; part < zerosOf.size() && !read.IsInvalidated(); ++part) {
      for (const SlotRun& run : RunsOf(part, read.Header()))
        if (!CopyChanged(run, zerosOf[part] != zerosNow)) return false;
    }
    return true;
  });
}

std::uint32_t PartwiseCopy::Remaining(std::uint64_t deadline) const {
  const std::uint64_t now = log->Now();
  return now < deadline ? static_cast<std::uint32_t>(deadline - now) : 0;
}

bool PartwiseCopy::IsSameLog(const LogFileHeader& now) const {
  return now.maxMessages == static_cast<std::int64_t>(snapshot->slots.size()) &&
         now.nextSequence >= last.nextSequence && now.changeCount >= last.changeCount &&
         (!lastEnd || log->Now() - *lastEnd <= SafeAgeMs(now));
}

// Returns the slots of a part that hold messages.
std::vector<SlotRun> PartwiseCopy::RunsOf(std::size_t part, const LogFileHeader& header) const {
  const auto first = static_cast<std::int64_t>(part) * partSlots;
  std::vector<SlotRun> runs;
  for (const SlotRun& run : OccupiedRuns(header, log->SlotCount())) {
    const SlotRun common{std::max(run.begin, first), std::min(run.end, first + partSlots)};
    if (common.begin < common.end) runs.push_back(common);
  }
  return runs;
}

bool PartwiseCopy::CopyChanged(const SlotRun& run, bool zerosMayDiffer) {
  const auto first = static_cast<std::size_t>(run.begin);
  if (!log->CopyNumbers(first, static_cast<std::size_t>(run.end - run.begin), numbers.data())) return false;
  const auto changed = [&](std::int64_t at) {
    const auto slot = static_cast<std::size_t>(at);
    const std::uint64_t number = numbers[slot - first];
    return copied[slot] == 0 || number != snapshot->slots[slot].sequence || (number == 0 && zerosMayDiffer);
  };
  for (std::int64_t slot = run.begin; slot < run.end; ++slot) {
    if (!changed(slot)) continue;
    const std::int64_t from = slot;
    while (slot < run.end && changed(slot)) ++slot;
    if (!CopyAgain({from, slot})) return false;
  }
  return true;
}

// Clears the marks of the slots: their copies count only after the read has proved consistent.
bool PartwiseCopy::CopyAgain(const SlotRun& run) {
  Mark(run, false);
  const auto slot = static_cast<std::size_t>(run.begin);
  return log->CopySlots(slot, static_cast<std::size_t>(run.end - run.begin), &snapshot->slots[slot]);
}

void PartwiseCopy::Mark(const SlotRun& run, bool counts) {
  std::fill(copied.begin() + run.begin, copied.begin() + run.end, static_cast<std::uint8_t>(counts));
}

}  // namespace TamLogClient
