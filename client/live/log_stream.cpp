#include "client/live/log_stream.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "client/log/cursor.h"
#include "client/message/win32.h"

namespace TamLogClient {

namespace {

// The longest time between two reads of the log, whatever the interval is: a server that stops waits for its
// readers.
constexpr std::uint32_t kMostLookMs = 200;
constexpr std::chrono::milliseconds kGuardPause{100};
constexpr std::uint32_t kReopenMs = 250;
constexpr std::uint32_t kPipeMs = 200;
constexpr std::uint64_t kSilenceMs = 3000;
constexpr std::uint64_t kNextPingMs = 1000;
constexpr int kFailedPings = 2;
constexpr std::uint64_t kFlushMs = 200;       // the server's pause between two flushes
constexpr std::uint32_t kUsualPollMs = 1000;  // its pause between two readings of the driver

LogChange ChangeOf(const FollowStep& step) {
  if (step.cleared) return LogChange::Cleared;
  if (step.rewritten) return LogChange::Rewrite;
  return step.messages.empty() && !step.loss.Any() ? LogChange::None : LogChange::Append;
}

}  // namespace

LogStream::LogStream(LogStreamOptions chosen)
    : options(std::move(chosen)), client({options.pipeName, kPipeMs, kPipeMs}) {}

Status LogStream::Open() {
  return Begin(nullptr, {});
}

Status LogStream::Open(const FollowerMemory& memory, const std::vector<ReorderBuffer::Ready>& heldBack) {
  return Begin(&memory, heldBack);
}

Status LogStream::Begin(const FollowerMemory* memory, const std::vector<ReorderBuffer::Ready>& heldBack) {
  Close();
  waiting.clear();
  held = {};
  failure = Status::Ok;
  away = reopened = false;
  Status status = reader.Open(options.mapName);
  const bool opened = status == Status::Ok;
  if (opened) status = reader.Snapshot(snapshot, options.timeoutMs);
  if (!opened || !Readable(status)) {
    Release();
    return status;
  }
  guarding = true;
  guard = std::thread(&LogStream::Guard, this);
  if (options.ordered) SetHoldTime();
  for (const ReorderBuffer::Ready& entry : heldBack) held.Add(entry.message, GetTickCount64(), entry.twin);
  if (memory != nullptr) {
    follower.Resume(*memory);
    Queue(follower.Next(snapshot, true));
  } else {
    follower.Start(snapshot);
  }
  lastChange = snapshot.header.changeCount;
  lastVisit = lastNews = GetTickCount64();
  return status;
}

void LogStream::SetHoldTime() {
  SettingsBody settings{};
  const bool known = client.GetSettings(settings) == Status::Ok;
  client.Disconnect();
  held.SetHold(std::uint64_t{known ? settings.devicePollRate : kUsualPollMs} + 2 * kFlushMs);
}

void LogStream::Close() {
  if (guard.joinable()) {
    {
      const std::lock_guard lock(guardLock);
      guarding = false;
    }
    guardEnds.notify_one();
    guard.join();
  }
  Release();
}

void LogStream::Release() {
  reader.Close();
  client.Disconnect();
}

// The guard's thread.
void LogStream::Guard() {
  std::unique_lock lock(guardLock);
  while (!guardEnds.wait_for(lock, kGuardPause, [this] { return !guarding; })) reader.ReleaseIfStopped();
}

LogChange LogStream::Wait(std::uint32_t timeoutMs) {
  const std::uint64_t deadline = GetTickCount64() + timeoutMs;
  while (failure == Status::Ok) {
    LogChange change = LogChange::None;
    if (GetTickCount64() >= nextLook) {
      change = Look();
      nextLook = GetTickCount64() + (away ? kReopenMs : std::min(options.intervalMs, kMostLookMs));
    }
    const bool due = QueueDue(false);
    const std::uint64_t now = GetTickCount64();
    if (change != LogChange::None || due || now >= deadline) return change;
    Sleep(static_cast<DWORD>(std::min(deadline, std::max(nextLook, now + 1)) - now));
  }
  return LogChange::None;
}

Status LogStream::Next(LogItem& item, std::uint32_t timeoutMs) {
  const std::uint64_t deadline = GetTickCount64() + timeoutMs;
  while (waiting.empty()) {
    if (failure != Status::Ok) return failure;
    const std::uint64_t now = GetTickCount64();
    Wait(now < deadline ? static_cast<std::uint32_t>(deadline - now) : 0);
    if (waiting.empty() && GetTickCount64() >= deadline && failure == Status::Ok) return Status::TimedOut;
  }
  returned = std::move(waiting.front());
  waiting.pop_front();
  item = returned.item;
  if (item.kind == LogItem::Kind::Message) {
    item.message = returned.own ? returned.own.get() : &snapshot.slots[returned.slot];
  }
  return Status::Ok;
}

void LogStream::ReleaseAll() {
  QueueDue(true);
  held.SetHold(0);
}

LogChange LogStream::Look() {
  if (away && !Reopen()) return LogChange::None;
  LogFileHeader header{};
  const Status status = reader.Look(header);
  if (status == Status::NotRunning) return LoseServer();
  if (status != Status::Ok) return Fail(status);
  if (header.changeCount == lastChange && !reopened) {
    WatchSilence();
    return away ? LogChange::Stopped : LogChange::None;
  }
  if (GetTickCount64() - lastVisit < options.intervalMs) return LogChange::None;
  return TakeSnapshot();
}

LogChange LogStream::TakeSnapshot() {
  KeepWaiting();
  const Status status = reader.Snapshot(snapshot, options.timeoutMs);
  if (status == Status::NotRunning) return LoseServer();
  if (status == Status::TimedOut || status == Status::Unsteady || status == Status::Stuck) {
    QueueEvent(LogItem::Kind::Blocked);
    return LogChange::None;
  }
  if (!Readable(status)) return Fail(status);
  lastVisit = lastNews = GetTickCount64();
  lastChange = snapshot.header.changeCount;
  const FollowStep step = follower.Next(snapshot, reopened);
  const LogChange change = reopened ? LogChange::Reopened : ChangeOf(step);
  reopened = false;
  Queue(step);
  return change;
}

// Copies the waiting messages out of the snapshot, which is about to be overwritten.
void LogStream::KeepWaiting() {
  for (Waiting& entry : waiting) {
    if (entry.item.kind == LogItem::Kind::Message && !entry.own) {
      entry.own = std::make_unique<LogMessage>(snapshot.slots[entry.slot]);
    }
  }
}

LogChange LogStream::Fail(Status status) {
  failure = status;
  Release();
  return LogChange::None;
}

LogChange LogStream::LoseServer() {
  Release();
  away = true;
  reopened = false;
  failedPings = 0;
  QueueEvent(LogItem::Kind::Stopped);
  return LogChange::Stopped;
}

bool LogStream::Reopen() {
  std::string name;
  bool back = client.GetFileMapName(name) == Status::Ok;
  // Any process can offer the pipe and name another mapping: the server's own has one name.
  if (options.mapName == kFileMapName) name = kFileMapName;
  back = back && reader.Open(name) == Status::Ok;
  client.Disconnect();
  if (!back) return false;
  away = false;
  reopened = true;
  lastVisit = 0;
  lastNews = GetTickCount64();
  QueueEvent(LogItem::Kind::Reopened);
  return true;
}

// Pings a server whose log has not changed for a while. A killed server cannot clear `serverRunning`: it
// stays set for as long as a process holds the mapping.
void LogStream::WatchSilence() {
  const std::uint64_t now = GetTickCount64();
  if (now - lastNews < kSilenceMs) return;
  const Status status = client.Ping();
  client.Disconnect();
  failedPings = status == Status::NotRunning ? failedPings + 1 : 0;
  if (failedPings >= kFailedPings) {
    LoseServer();
  } else {
    lastNews = now - (failedPings > 0 ? kSilenceMs - kNextPingMs : 0);
  }
}

void LogStream::QueueEvent(LogItem::Kind kind, const Loss& loss) {
  waiting.push_back({{kind, nullptr, false, loss, 1}, 0, nullptr});
}

void LogStream::Queue(const FollowStep& step) {
  if (step.cleared) QueueEvent(LogItem::Kind::Cleared);
  if (step.loss.Any()) QueueEvent(LogItem::Kind::Lost, step.loss);
  std::vector<std::uint32_t> slots;
  if (options.numberTwins) {
    for (const NewMessage& message : step.messages) slots.push_back(message.slot);
  }
  std::vector<std::uint32_t> twins = TwinsIn(snapshot, slots);
  twins.resize(step.messages.size(), 1);
  const std::uint64_t now = GetTickCount64();
  for (std::size_t i = 0; i < step.messages.size(); ++i) {
    const NewMessage& message = step.messages[i];
    if (options.ordered) {
      held.Add(snapshot.slots[message.slot], now, twins[i]);
    } else {
      waiting.push_back(
          {{LogItem::Kind::Message, nullptr, message.late, {}, twins[i]}, message.slot, nullptr});
    }
  }
}

bool LogStream::QueueDue(bool all) {
  if (held.Size() == 0) return false;
  std::vector<ReorderBuffer::Ready> ready;
  if (all) {
    held.TakeAll(ready);
  } else {
    held.TakeDue(GetTickCount64(), ready);
  }
  for (const ReorderBuffer::Ready& entry : ready) {
    waiting.push_back({{LogItem::Kind::Message, nullptr, entry.late, {}, entry.twin},
                       0,
                       std::make_unique<LogMessage>(entry.message)});
  }
  return !ready.empty();
}

}  // namespace TamLogClient
