#include "client/live/log_reader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "client/live/guarded_copy.h"
#include "client/log/ring.h"
#include "client/message/win32.h"
#include "records/pipe_protocol.h"

namespace TamLogClient {

namespace {

constexpr DWORD kEventAccess = SYNCHRONIZE | EVENT_MODIFY_STATE;
constexpr int kCopyAttempts = 10;
constexpr std::uint32_t kInPageError = 0xC0000006U;
// A reader inside has no other way out than the header lock. After this time its holder counts as dead.
constexpr DWORD kLeaveMs = 30000;
// The header lock is held for microseconds only: it is waited for so long even when the time-out is used up.
constexpr DWORD kLockMs = 1000;
constexpr DWORD kNewPipesMs = 10;

Status StatusOfLastError() {
  switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return Status::NotRunning;
    case ERROR_ACCESS_DENIED:
      return Status::AccessDenied;
    default:
      return Status::SystemError;
  }
}

// An in-page error may pass; any other fault will not.
bool Copy(void* to, const void* from, std::size_t bytes) {
  for (int attempt = 0; attempt < kCopyAttempts; ++attempt) {
    const std::uint32_t code = TamLogClientGuardedCopy(to, from, bytes);
    if (code == 0) return true;
    if (code != kInPageError) return false;
  }
  return false;
}

// Whether the server has come to its pipes, which it makes last; asks without connecting. Twice: behind a
// client that was gone at once there are none for a moment.
bool PipesAreThere() {
  const auto seen = [] {
    return WaitNamedPipeA(kRequestPipeName, 1) != FALSE || GetLastError() != ERROR_FILE_NOT_FOUND;
  };
  if (seen()) return true;
  Sleep(kNewPipesMs);
  return seen();
}

class Deadline {
 public:
  explicit Deadline(std::uint32_t milliseconds) : end(GetTickCount64() + milliseconds) {}
  DWORD Remaining() const {
    const ULONGLONG now = GetTickCount64();
    return now < end ? static_cast<DWORD>(end - now) : 0;
  }

 private:
  ULONGLONG end;
};

std::uint64_t Microseconds() {
  LARGE_INTEGER count;
  LARGE_INTEGER perSecond;
  QueryPerformanceCounter(&count);
  QueryPerformanceFrequency(&perSecond);
  const auto ticks = static_cast<std::uint64_t>(count.QuadPart);
  const auto rate = static_cast<std::uint64_t>(perSecond.QuadPart);
  return ticks / rate * 1000000 + ticks % rate * 1000000 / rate;
}

// Messages were only appended since `known`, and fewer than the ring holds.
bool OnlyAppended(const LogFileHeader& known, const LogFileHeader& now) {
  return now.maxMessages == known.maxMessages && now.rewriteCount == known.rewriteCount &&
         now.changeCount >= known.changeCount && now.nextSequence >= known.nextSequence &&
         now.nextSequence - known.nextSequence < static_cast<std::uint64_t>(now.maxMessages);
}

bool Changed(const LogFileHeader& before, const LogFileHeader& after) {
  return before.changeCount != after.changeCount || before.rewriteCount != after.rewriteCount ||
         before.nextSequence != after.nextSequence || before.nextSlot != after.nextSlot ||
         before.messageCount != after.messageCount || before.maxMessages != after.maxMessages;
}

// Attempts until one can be trusted.
template <typename Attempt>
Status Repeat(std::uint32_t timeoutMs, Attempt attempt) {
  const Deadline deadline(timeoutMs);
  do {
    bool again = false;
    const Status status = attempt(deadline.Remaining(), again);
    if (!again) return status;
  } while (deadline.Remaining() > 0);
  return Status::TimedOut;
}

}  // namespace

bool LogView::BudgetIsSpent() const {
  return Microseconds() >= deadline;
}

Status LogReader::Open(const std::string& mapName) {
  Close();
  // A server that is starting has its file mapped already, and may have to make it smaller: that fails while
  // anybody else has it mapped, and the server stays stopped.
  if (mapName == kFileMapName && !PipesAreThere()) return Status::NotRunning;
  mapping = Handle(OpenFileMappingA(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, mapName.c_str()));
  if (!mapping) return StatusOfLastError();
  Status status = MapViews();
  LogFileHeader header{};
  if (status == Status::Ok) status = Look(header);
  if (status == Status::Ok) status = OpenEvents();
  if (status != Status::Ok) Close();
  return status;
}

Status LogReader::MapViews() {
  headerView = static_cast<unsigned char*>(
      MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, kSlotsOffset));
  fileView = static_cast<const unsigned char*>(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
  if (headerView == nullptr || fileView == nullptr) {
    const Status status = StatusOfLastError();
    return status == Status::AccessDenied ? status : Status::Damaged;
  }
  MEMORY_BASIC_INFORMATION information{};
  if (VirtualQuery(fileView, &information, sizeof(information)) == 0) return Status::SystemError;
  viewSize = information.RegionSize;
  return viewSize >= kSlotsOffset ? Status::Ok : Status::Damaged;
}

Status LogReader::OpenEvents() {
  LockNames names{};
  if (!Copy(&names, fileView + kLockNamesOffset, sizeof(names))) return Status::InPage;
  const std::array<Handle*, 3> events{&headerLock, &readWait, &writeWait};
  for (std::size_t i = 0; i < events.size(); ++i) {
    names.name[i][kLockNameSize - 1] = '\0';
    if (names.name[i][0] == '\0') return Status::NotRunning;
    *events[i] = Handle(OpenEventA(kEventAccess, FALSE, names.name[i]));
    if (!*events[i]) return StatusOfLastError();
  }
  return Status::Ok;
}

void LogReader::Close() {
  if (headerView != nullptr) UnmapViewOfFile(headerView);
  if (fileView != nullptr) UnmapViewOfFile(fileView);
  headerView = nullptr;
  fileView = nullptr;
  viewSize = 0;
  mapping.Close();
  headerLock.Close();
  readWait.Close();
  writeWait.Close();
  lastFilled = nullptr;
}

std::size_t LogReader::SlotsInView() const {
  return (viewSize - kSlotsOffset) / sizeof(LogMessage);
}

Status LogReader::CopyHeader(LogFileHeader& header) const {
  return Copy(&header, fileView, sizeof(header)) ? Status::Ok : Status::InPage;
}

Status LogReader::Look(LogFileHeader& header) {
  if (!IsOpen()) return Status::NotRunning;
  const Status status = CopyHeader(header);
  if (status == Status::Ok && header.serverRunning == 0) {
    Close();
    return Status::NotRunning;
  }
  return status;
}

bool LogReader::ChangeReadCount(std::int32_t step, std::int32_t& result) {
  std::int32_t count = 0;
  if (!Copy(&count, headerView, sizeof(count))) return false;
  result = count + step;
  return Copy(headerView, &result, sizeof(result));
}

// One wait for both: one by one, a writer may come in between, and it takes three calls into the system
// instead of one.
Status LogReader::TakeHeaderLock(std::uint32_t timeoutMs) {
  const std::array<HANDLE, 2> both{readWait.Get(), headerLock.Get()};
  const auto wait = [&both](DWORD milliseconds) {
    return WaitForMultipleObjects(2, both.data(), TRUE, milliseconds) == WAIT_OBJECT_0;
  };
  const auto readersMayEnter = [this] { return WaitForSingleObject(readWait.Get(), 0) == WAIT_OBJECT_0; };
  if (wait(timeoutMs)) return Status::Ok;
  if (!readersMayEnter()) return Status::TimedOut;
  if (timeoutMs < kLockMs && wait(kLockMs - timeoutMs)) return Status::Ok;
  return readersMayEnter() ? Status::Stuck : Status::TimedOut;
}

Status LogReader::Enter(std::uint32_t timeoutMs) {
  if (const Status status = TakeHeaderLock(timeoutMs); status != Status::Ok) return status;
  std::int32_t count = 0;
  const bool counted = ChangeReadCount(1, count);
  if (counted) ResetEvent(writeWait.Get());
  SetEvent(headerLock.Get());
  return counted ? Status::Ok : Status::InPage;
}

LogReader::Left LogReader::Leave() {
  const bool locked = WaitForSingleObject(headerLock.Get(), kLeaveMs) == WAIT_OBJECT_0;
  std::int32_t count = 0;
  Left left = Left::Normally;
  if (!ChangeReadCount(-1, count)) {
    left = Left::Fault;
  } else if (count < 0) {
    // The writer passed this reader and set the count to 0. A count left below 0 would never come back to 0,
    // and the next flush would wait for ever: so it is put right, and no reader is counted, which is what the
    // write-wait event has to say.
    ChangeReadCount(-count, count);
    left = Left::UnderTheWriter;
  }
  if (left == Left::Fault || count == 0) SetEvent(writeWait.Get());
  if (locked) SetEvent(headerLock.Get());
  return left;
}

// One read access. `again`: what was done inside cannot be trusted, but the next attempt may.
Status LogReader::Inside(std::uint32_t timeoutMs, LogFileHeader& header, bool& again,
                         const std::function<Work()>& work) {
  again = false;
  if (const Status status = Enter(timeoutMs); status != Status::Ok) return status;
  const std::uint64_t entered = Microseconds();
  Work done = Work::Fault;
  try {
    if (CopyHeader(header) == Status::Ok) done = work();
    LogFileHeader after{};
    if (done == Work::Done && CopyHeader(after) != Status::Ok) done = Work::Fault;
    // A writer that passed this reader changed the header meanwhile.
    if (done == Work::Done && Changed(header, after)) done = Work::Again;
  } catch (...) {
    Leave();
    throw;
  }
  const Left left = Leave();
  lastHold = Microseconds() - entered;
  if (left == Left::UnderTheWriter) ++passed;
  if (done == Work::Fault || left == Left::Fault) return Status::InPage;
  again = done == Work::Again || left == Left::UnderTheWriter;
  if (!again && header.serverRunning == 0) {
    Close();
    return Status::NotRunning;
  }
  return Status::Ok;
}

Status LogReader::Snapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs) {
  return Repeat(timeoutMs, [&](std::uint32_t remaining, bool& again) {
    return TrySnapshot(snapshot, remaining, again);
  });
}

Status LogReader::TrySnapshot(LogSnapshot& snapshot, std::uint32_t timeoutMs, bool& again) {
  LogFileHeader seen{};
  if (const Status status = Look(seen); status != Status::Ok) return status;
  const auto capacity = static_cast<std::size_t>(std::max(seen.maxMessages, 0));
  if (capacity == 0 || capacity > SlotsInView()) return Status::Damaged;
  const LogFileHeader known = lastHeader;
  const bool sameSnapshot = lastFilled == &snapshot && snapshot.slots.size() == capacity;
  lastFilled = nullptr;
  snapshot.slots.resize(capacity);  // before read access: nothing is allocated inside
  const Status status = Inside(timeoutMs, snapshot.header, again, [&] {
    const auto now = static_cast<std::size_t>(std::max(snapshot.header.maxMessages, 0));
    if (now != snapshot.slots.size()) return Work::Again;  // the buffer was made for another capacity
    return CopySlots(snapshot, sameSnapshot ? &known : nullptr) == Status::Ok ? Work::Done : Work::Fault;
  });
  if (status != Status::Ok || again) return status;
  lastFilled = &snapshot;
  lastHeader = snapshot.header;
  return snapshot.HeaderIsSound() ? Status::Ok : Status::Damaged;
}

Status LogReader::Newest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs) {
  return Repeat(timeoutMs, [&](std::uint32_t remaining, bool& again) {
    return TryNewest(count, tail, remaining, again);
  });
}

Status LogReader::TryNewest(std::size_t count, LogTail& tail, std::uint32_t timeoutMs, bool& again) {
  LogFileHeader seen{};
  if (const Status status = Look(seen); status != Status::Ok) return status;
  if (!RingFits(seen, SlotsInView())) return Status::Damaged;
  const auto messages = static_cast<std::uint32_t>(seen.messageCount);
  const auto wanted = static_cast<std::uint32_t>(std::min<std::size_t>(count, messages));
  const auto probes = ProbePositions(messages - wanted);
  tail.messages.resize(wanted);  // before read access: nothing is allocated inside
  tail.probes.resize(probes.size());
  tail.whole = wanted == messages;
  return Inside(timeoutMs, tail.header, again, [&] { return CopyTail(tail, seen, probes); });
}

// Runs under read access.
LogReader::Work LogReader::CopyTail(LogTail& tail, const LogFileHeader& expected,
                                    const std::vector<std::uint32_t>& probes) {
  const LogFileHeader& header = tail.header;
  if (Changed(expected, header)) return Work::Again;
  const auto slotInView = [this](std::int64_t slot) {
    return fileView + kSlotsOffset + static_cast<std::size_t>(slot) * sizeof(LogMessage);
  };
  for (std::size_t i = 0; i < probes.size(); ++i) {
    LogMessage message{};
    if (!Copy(&message, slotInView(SlotAt(header, probes[i])), sizeof(message))) return Work::Fault;
    if (i == 0) tail.first = message;
    tail.probes[i] = TimeKey(message.body);
  }
  LogMessage* to = tail.messages.data();
  for (const SlotRun& run : NewestRuns(header, static_cast<std::int64_t>(tail.messages.size()))) {
    const auto count = static_cast<std::size_t>(run.end - run.begin);
    if (count > 0 && !Copy(to, slotInView(run.begin), count * sizeof(LogMessage))) return Work::Fault;
    to += count;
  }
  return Work::Done;
}

Status LogReader::WithView(std::uint32_t budgetMicroseconds, const std::function<void(const LogView&)>& look,
                           std::uint32_t timeoutMs) {
  return Repeat(timeoutMs, [&](std::uint32_t remaining, bool& again) {
    return TryView(budgetMicroseconds, look, remaining, again);
  });
}

Status LogReader::TryView(std::uint32_t budgetMicroseconds, const std::function<void(const LogView&)>& look,
                          std::uint32_t timeoutMs, bool& again) {
  LogFileHeader header{};
  if (const Status status = Look(header); status != Status::Ok) return status;
  bool sound = false;
  const Status status = Inside(timeoutMs, header, again, [&] {
    sound = RingFits(header, SlotsInView());
    if (!sound || header.serverRunning == 0) return Work::Done;
    const auto* const slots = reinterpret_cast<const LogMessage*>(fileView + kSlotsOffset);
    look(LogView(header, slots, Microseconds() + budgetMicroseconds));
    return Work::Done;
  });
  if (status != Status::Ok || again) return status;
  if (!sound) return Status::Damaged;
  return lastHold > budgetMicroseconds ? Status::TimedOut : Status::Ok;
}

Status LogReader::CopySlots(LogSnapshot& snapshot, const LogFileHeader* known) {
  const LogFileHeader& header = snapshot.header;
  if (!snapshot.HeaderIsSound()) return CopyRange(snapshot, 0, header.maxMessages);
  std::int64_t count = header.messageCount;
  if (known != nullptr && OnlyAppended(*known, header)) {
    count = std::min(count, static_cast<std::int64_t>(header.nextSequence - known->nextSequence));
  }
  for (const SlotRun& run : NewestRuns(header, count)) {
    const Status status = CopyRange(snapshot, run.begin, run.end);
    if (status != Status::Ok) return status;
  }
  return Status::Ok;
}

Status LogReader::CopyRange(LogSnapshot& snapshot, std::int64_t first, std::int64_t end) {
  if (first >= end) return Status::Ok;
  const auto slot = static_cast<std::size_t>(first);
  const auto bytes = static_cast<std::size_t>(end - first) * sizeof(LogMessage);
  const bool copied = Copy(&snapshot.slots[slot], fileView + kSlotsOffset + slot * sizeof(LogMessage), bytes);
  return copied ? Status::Ok : Status::InPage;
}

}  // namespace TamLogClient
