#include "client/live/log_reader.h"

#include <algorithm>
#include <cstddef>

#include "client/live/call_deadline.h"
#include "client/live/consistent_read.h"
#include "client/live/partwise_copy.h"
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

// A copy at once that failed this often is made part by part.
constexpr int kAttemptsAtOnce = 5;
// More slots than this (73 MB) are not copied at once: a slow machine would need too long.
constexpr std::int64_t kMostAtOnce = 131072;
// Between two pieces of this size a copy looks whether the server has closed the log.
constexpr std::int64_t kPieceSlots = 4096;

// Returns how many of the newest slots may differ from a copy made with the header `known`, which may be
// null.
std::int64_t NewSlots(const LogFileHeader& header, const LogFileHeader* known) {
  const std::int64_t count = header.messageCount;
  if (known == nullptr) return count;
  const auto appended = AppendedSince(*known, header);
  const bool few = appended && *appended < static_cast<std::uint64_t>(header.maxMessages);
  return few ? std::min(count, static_cast<std::int64_t>(*appended)) : count;
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
  const bool read = log.CopyHeader(header);
  if (!read && !log.WasReleased()) return Status::InPage;
  if (read && header.serverRunning != 0) return Status::Ok;
  Close();
  return Status::NotRunning;
}

template <typename Attempt>
Status LogReader::Repeat(std::uint32_t timeoutMs, Attempt attempt) {
  const std::uint64_t begun = Microseconds();
  const CallDeadline deadline(timeoutMs);
  std::optional<Status> status;
  do {
    status = attempt(deadline.Remaining());
  } while (!status && deadline.Remaining() > 0);
  lastCopy = Microseconds() - begun;
  if (log.WasReleased() && status != Status::Ok) {
    Close();
    return Status::NotRunning;
  }
  return status.value_or(Status::Unsteady);
}

template <typename Work>
std::optional<Status> LogReader::Read(std::uint32_t timeoutMs, Work work) {
  ConsistentRead read(log);
  std::optional<Status> status = read.Begin(timeoutMs);
  if (status == Status::Ok) status = work(read);
  if (status == Status::Ok) status = read.End();
  if (status == Status::NotRunning) Close();
  return status;
}

// --- The whole log.

Status LogReader::Snapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs) {
  int failed = 0;
  return Repeat(timeoutMs,
                [&](std::uint32_t remaining) { return TrySnapshot(snapshot, remaining, failed++); });
}

std::optional<Status> LogReader::TrySnapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs, int failed) {
  LogFileHeader seen{};
  if (const Status status = Look(seen); status != Status::Ok) return status;
  const auto capacity = static_cast<std::size_t>(std::max(seen.maxMessages, 0));
  if (capacity == 0 || capacity > log.SlotCount()) return Status::Damaged;
  const LogFileHeader knownHeader = lastHeader;
  const bool sameSnapshot = lastFilled == &snapshot && snapshot.slots.size() == capacity;
  const LogFileHeader* const known = sameSnapshot ? &knownHeader : nullptr;
  lastFilled = nullptr;
  snapshot.slots.resize(capacity);
  const bool atOnce = failed < kAttemptsAtOnce && NewSlots(seen, known) <= kMostAtOnce;
  const std::optional<Status> status =
      atOnce ? CopyAtOnce(snapshot, known, timeoutMs) : PartwiseCopy(log, snapshot).Run(timeoutMs);
  if (status == Status::NotRunning) Close();
  if (status != Status::Ok) return status;
  lastFilled = &snapshot;
  lastHeader = snapshot.header;
  return snapshot.HeaderIsSound() ? Status::Ok : Status::Damaged;
}

std::optional<Status> LogReader::CopyAtOnce(LogSnapshot& snapshot, const LogFileHeader* known,
                                            std::uint32_t timeoutMs) {
  return Read(timeoutMs, [&](ConsistentRead& read) -> std::optional<Status> {
    const LogFileHeader& header = read.Header();
    // The snapshot's slots were made for another capacity.
    if (header.maxMessages != static_cast<std::int64_t>(snapshot.slots.size())) return std::nullopt;
    snapshot.header = header;
    return CopySlots(snapshot, NewSlots(header, known), read) ? Status::Ok : Status::InPage;
  });
}

bool LogReader::CopySlots(LogSnapshot& snapshot, std::int64_t count, ConsistentRead& read) const {
  const LogFileHeader& header = snapshot.header;
  const auto runs =
      snapshot.HeaderIsSound() ? NewestRuns(header, count) : OccupiedRuns(header, log.SlotCount());
  for (const SlotRun& run : runs) {
    for (std::int64_t first = run.begin; first < run.end; first += kPieceSlots) {
      if (first > run.begin && read.IsInvalidated()) return true;
      const auto slot = static_cast<std::size_t>(first);
      const auto slots = static_cast<std::size_t>(std::min(kPieceSlots, run.end - first));
      if (!log.CopySlots(slot, slots, snapshot.slots.data() + slot)) return false;
    }
  }
  return true;
}

// --- Its newest part.

Status LogReader::Newest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs) {
  return Repeat(timeoutMs, [&](std::uint32_t remaining) { return TryNewest(count, tail, remaining); });
}

std::optional<Status> LogReader::TryNewest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs) {
  bool sound = true;
  const auto status = Read(timeoutMs, [&](ConsistentRead& read) -> std::optional<Status> {
    const LogFileHeader& header = read.Header();
    sound = RingFits(header, log.SlotCount());
    if (!sound) return Status::Ok;
    const auto messages = static_cast<std::uint32_t>(header.messageCount);
    const auto wanted = static_cast<std::uint32_t>(std::min<std::size_t>(count, messages));
    const auto probes = ProbePositions(messages - wanted);
    tail.header = header;
    tail.messages.resize(wanted);
    tail.probes.resize(probes.size());
    tail.whole = wanted == messages;
    return CopyTail(tail, probes);
  });
  return status == Status::Ok && !sound ? Status::Damaged : status;
}

std::optional<Status> LogReader::CopyTail(LogTail& tail, const std::vector<std::uint32_t>& probes) const {
  constexpr std::size_t kUpToTime = offsetof(LogMessage, body) + offsetof(LogMessageBody, type);
  const LogFileHeader& header = tail.header;
  LogMessage message{};
  for (std::size_t i = 0; i < probes.size(); ++i) {
    const std::size_t bytes = i == 0 ? sizeof(LogMessage) : kUpToTime;
    if (!log.CopySlotStart(SlotAt(header, probes[i]), bytes, &message)) return Status::InPage;
    if (i == 0) tail.first = message;
    tail.probes[i] = TimeKey(message.body);
  }
  LogMessage* to = tail.messages.data();
  for (const SlotRun& run : NewestRuns(header, static_cast<std::int64_t>(tail.messages.size()))) {
    const auto count = static_cast<std::size_t>(run.end - run.begin);
    if (!log.CopySlots(static_cast<std::size_t>(run.begin), count, to)) return Status::InPage;
    to += count;
  }
  return Status::Ok;
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
  constexpr std::uint32_t kMostMicroseconds = ConsistentRead::kLongestMs * 1000;
  const std::uint64_t budget = std::min(budgetMicroseconds, kMostMicroseconds);
  bool sound = true;
  const auto status = Read(timeoutMs, [&](ConsistentRead& read) -> std::optional<Status> {
    sound = RingFits(read.Header(), log.SlotCount());
    if (!sound) return Status::Ok;
    const LogView view(read.Header(), log.Slots(), Microseconds() + budget);
    look(view);
    return view.BudgetIsSpent() ? Status::TimedOut : Status::Ok;
  });
  return status == Status::Ok && !sound ? Status::Damaged : status;
}

}  // namespace TamLogClient
