#include "client/live/log_reader.h"

#include <algorithm>

#include "client/live/call_deadline.h"
#include "client/log/header_counters.h"
#include "client/log/ring.h"
#include "client/message/win32.h"

namespace TamLogClient {

namespace {

std::uint64_t Microseconds() {
  LARGE_INTEGER count;
  LARGE_INTEGER perSecond;
  QueryPerformanceCounter(&count);
  QueryPerformanceFrequency(&perSecond);
  const auto ticks = static_cast<std::uint64_t>(count.QuadPart);
  const auto rate = static_cast<std::uint64_t>(perSecond.QuadPart);
  return ticks / rate * 1000000 + ticks % rate * 1000000 / rate;
}

bool Changed(const LogFileHeader& before, const LogFileHeader& after) {
  return before.changeCount != after.changeCount || before.rewriteCount != after.rewriteCount ||
         before.nextSequence != after.nextSequence || before.nextSlot != after.nextSlot ||
         before.messageCount != after.messageCount || before.maxMessages != after.maxMessages;
}

// Repeats `attempt` until it returns a status, until the time is over. At least one attempt is made.
template <typename Attempt>
Status Repeat(std::uint32_t timeoutMs, Attempt attempt) {
  const CallDeadline deadline(timeoutMs);
  do {
    if (const std::optional<Status> status = attempt(deadline.Remaining())) return *status;
  } while (deadline.Remaining() > 0);
  return Status::TimedOut;
}

}  // namespace

bool LogView::BudgetIsSpent() const {
  return Microseconds() >= deadline;
}

Status LogReader::Open(const std::string& mapName, EventNames accepted) {
  lastFilled = nullptr;
  return log.Open(mapName, accepted);
}

void LogReader::Close() {
  lastFilled = nullptr;
  log.Close();
}

Status LogReader::Look(LogFileHeader& header) {
  if (!IsOpen()) return Status::NotRunning;
  if (!log.CopyHeader(header)) return Status::InPage;
  if (header.serverRunning != 0) return Status::Ok;
  Close();
  return Status::NotRunning;
}

// --- One read access.

LogReader::Work LogReader::WorkInside(LogFileHeader& header, const std::function<Work()>& work) const {
  if (!log.CopyHeader(header)) return Work::Fault;
  // The server has closed its log while this reader waited, and may be opening it again: leave at once.
  if (header.serverRunning == 0) return Work::Done;
  const Work done = work();
  if (done != Work::Done) return done;
  LogFileHeader after{};
  if (!log.CopyHeader(after)) return Work::Fault;
  // A writer that passed this reader changed the header meanwhile.
  return Changed(header, after) ? Work::Again : Work::Done;
}

std::optional<Status> LogReader::Inside(std::uint32_t timeoutMs, LogFileHeader& header,
                                        const std::function<Work()>& work) {
  if (const Status status = log.Enter(timeoutMs); status != Status::Ok) return status;
  const std::uint64_t entered = Microseconds();
  Work done = Work::Fault;
  try {
    done = WorkInside(header, work);
  } catch (...) {
    log.Leave();
    throw;
  }
  const MappedLog::Left left = log.Leave();
  lastHold = Microseconds() - entered;
  if (done == Work::Fault || left == MappedLog::Left::Fault) return Status::InPage;
  if (done == Work::Again || left == MappedLog::Left::PassedByWriter) return std::nullopt;
  if (header.serverRunning != 0) return Status::Ok;
  Close();
  return Status::NotRunning;
}

// --- The whole log.

Status LogReader::Snapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs) {
  return Repeat(timeoutMs, [&](std::uint32_t remaining) { return TrySnapshot(snapshot, remaining); });
}

std::optional<Status> LogReader::TrySnapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs) {
  LogFileHeader seen{};
  if (const Status status = Look(seen); status != Status::Ok) return status;
  const auto capacity = static_cast<std::size_t>(std::max(seen.maxMessages, 0));
  if (capacity == 0 || capacity > log.SlotCount()) return Status::Damaged;
  const LogFileHeader known = lastHeader;
  const bool sameSnapshot = lastFilled == &snapshot && snapshot.slots.size() == capacity;
  lastFilled = nullptr;
  snapshot.slots.resize(capacity);  // before read access: nothing is allocated inside
  const std::optional<Status> status = Inside(timeoutMs, snapshot.header, [&] {
    const auto now = static_cast<std::size_t>(std::max(snapshot.header.maxMessages, 0));
    if (now != snapshot.slots.size()) return Work::Again;  // the buffer was made for another capacity
    return CopySlots(snapshot, sameSnapshot ? &known : nullptr) ? Work::Done : Work::Fault;
  });
  if (status != Status::Ok) return status;
  lastFilled = &snapshot;
  lastHeader = snapshot.header;
  return snapshot.HeaderIsSound() ? Status::Ok : Status::Damaged;
}

// Copies the slots that may differ from those of `known`; null: all that hold messages. Copies all slots when
// the header is not valid.
bool LogReader::CopySlots(LogSnapshot& snapshot, const LogFileHeader* known) const {
  const LogFileHeader& header = snapshot.header;
  const std::int64_t capacity = header.maxMessages;
  if (!snapshot.HeaderIsSound()) return CopyRange(snapshot, 0, capacity);
  std::int64_t count = header.messageCount;
  if (known != nullptr) {
    const auto appended = AppendedSince(*known, header);
    if (appended && *appended < static_cast<std::uint64_t>(capacity)) {
      count = std::min(count, static_cast<std::int64_t>(*appended));
    }
  }
  for (const SlotRun& run : NewestRuns(header, count)) {
    if (!CopyRange(snapshot, run.begin, run.end)) return false;
  }
  return true;
}

bool LogReader::CopyRange(LogSnapshot& snapshot, std::int64_t first, std::int64_t end) const {
  if (first >= end) return true;
  const auto slot = static_cast<std::size_t>(first);
  return log.CopySlots(slot, static_cast<std::size_t>(end - first), &snapshot.slots[slot]);
}

// --- Its newest part.

Status LogReader::Newest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs) {
  return Repeat(timeoutMs, [&](std::uint32_t remaining) { return TryNewest(count, tail, remaining); });
}

std::optional<Status> LogReader::TryNewest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs) {
  LogFileHeader seen{};
  if (const Status status = Look(seen); status != Status::Ok) return status;
  if (!RingFits(seen, log.SlotCount())) return Status::Damaged;
  const auto messages = static_cast<std::uint32_t>(seen.messageCount);
  const auto wanted = static_cast<std::uint32_t>(std::min<std::size_t>(count, messages));
  const auto probes = ProbePositions(messages - wanted);
  tail.messages.resize(wanted);  // before read access: nothing is allocated inside
  tail.probes.resize(probes.size());
  tail.whole = wanted == messages;
  return Inside(timeoutMs, tail.header, [&] { return CopyTail(tail, seen, probes); });
}

// Runs under read access.
LogReader::Work LogReader::CopyTail(LogTail& tail, const LogFileHeader& expected,
                                    const std::vector<std::uint32_t>& probes) const {
  const LogFileHeader& header = tail.header;
  if (Changed(expected, header)) return Work::Again;
  for (std::size_t i = 0; i < probes.size(); ++i) {
    LogMessage message{};
    if (!log.CopySlots(SlotAt(header, probes[i]), 1, &message)) return Work::Fault;
    if (i == 0) tail.first = message;
    tail.probes[i] = TimeKey(message.body);
  }
  LogMessage* to = tail.messages.data();
  for (const SlotRun& run : NewestRuns(header, static_cast<std::int64_t>(tail.messages.size()))) {
    const auto count = static_cast<std::size_t>(run.end - run.begin);
    if (!log.CopySlots(static_cast<std::size_t>(run.begin), count, to)) return Work::Fault;
    to += count;
  }
  return Work::Done;
}

// --- In place.

Status LogReader::WithView(std::uint32_t budgetMicroseconds, const std::function<void(const LogView&)>& look,
                           std::uint32_t timeoutMs) {
  return Repeat(timeoutMs,
                [&](std::uint32_t remaining) { return TryView(budgetMicroseconds, look, remaining); });
}

std::optional<Status> LogReader::TryView(std::uint32_t budgetMicroseconds,
                                         const std::function<void(const LogView&)>& look,
                                         std::uint32_t timeoutMs) {
  LogFileHeader header{};
  if (const Status status = Look(header); status != Status::Ok) return status;
  bool sound = false;
  const std::optional<Status> status = Inside(timeoutMs, header, [&] {
    sound = RingFits(header, log.SlotCount());
    if (sound && header.serverRunning != 0) {
      look(LogView(header, log.Slots(), Microseconds() + budgetMicroseconds));
    }
    return Work::Done;
  });
  if (status != Status::Ok) return status;
  if (!sound) return Status::Damaged;
  return lastHold > budgetMicroseconds ? Status::TimedOut : Status::Ok;
}

}  // namespace TamLogClient
