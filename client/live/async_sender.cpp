#include "client/live/async_sender.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "client/message/message_body.h"
#include "client/message/text_split.h"

namespace TamLogClient {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kMostText = kTextSize - 1;
constexpr auto kLongWait = std::chrono::hours(1);

enum class Outcome : std::uint8_t { Taken, Refused, Doubtful, NotReached };

Outcome OutcomeOf(Status status) {
  switch (status) {
    case Status::Ok:
      return Outcome::Taken;
    case Status::Refused:
    case Status::TooLong:
    case Status::BadValue:
      return Outcome::Refused;
    case Status::Disconnected:
    case Status::TimedOut:
      return Outcome::Doubtful;
    default:
      return Outcome::NotReached;
  }
}

bool IsZero(const std::uint8_t (&bytes)[8]) {
  return std::all_of(std::begin(bytes), std::end(bytes), [](std::uint8_t byte) { return byte == 0; });
}

std::vector<std::string> PiecesOf(std::string_view text, LongText longText) {
  if (longText == LongText::Split) return SplitText(text, kMostText);
  if (longText == LongText::Truncate) return {TruncateText(text, kMostText)};
  return {std::string(text)};
}

// How often to try a server that does not answer.
class Retry {
 public:
  Retry(std::uint32_t first, std::uint32_t most) : firstMs(first), mostMs(std::max(first, most)) { Reset(); }
  void Reset() {
    pauseMs = firstMs;
    next = Clock::time_point{};
  }
  void Failed() {
    next = Clock::now() + milliseconds(pauseMs);
    pauseMs = std::min(pauseMs * 2, mostMs);
  }
  Clock::time_point Next() const { return next; }

 private:
  std::uint64_t firstMs;
  std::uint64_t mostMs;
  std::uint64_t pauseMs = 0;
  Clock::time_point next;
};

}  // namespace

class AsyncSender::Core {
 public:
  Core(std::unique_ptr<SenderTransport> way, AsyncSenderOptions chosen);
  ~Core() { Close(options.closeMs); }
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  SendResult Submit(const SenderEntry& entry);
  bool Flush(std::uint32_t timeoutMs);
  bool Close(std::uint32_t timeoutMs);
  SenderCounters Counters() const;

 private:
  using Lock = std::unique_lock<std::mutex>;

  SendResult MakePieces(const SenderEntry& entry, std::vector<LogMessageBody>& pieces);
  std::size_t Limit() const;
  bool Fits(std::size_t count) const { return queue.empty() || queue.size() + count <= Limit(); }
  SendResult MakeRoom(Lock& lock, std::size_t count);
  void Drop(std::size_t count);

  void Run();
  bool MayTry() const { return !counters.away || Clock::now() >= retry.Next(); }
  bool NoticeIsDue() const;
  void WaitForWork(Lock& lock);
  void KeepAlive(Lock& lock);
  Status SendUnlocked(Lock& lock, const LogMessageBody& message);
  void SendFront(Lock& lock);
  void SendNotice(Lock& lock);
  void Reached();
  void NotReached(Status status);

  const AsyncSenderOptions options;
  const std::unique_ptr<SenderTransport> transport;  // used by `thread` only
  const std::uint32_t senderNumber;
  std::mutex closing;  // one Close at a time

  mutable std::mutex mutex;         // guards all that follows but `thread`
  std::condition_variable work;     // the thread waits for it
  std::condition_variable settled;  // something left the queue, or the server went away
  std::deque<LogMessageBody> queue;
  bool inFlight = false;        // a message is on its way, taken from the front of the queue
  std::uint64_t queued = 0;     // messages ever put into the queue
  std::uint64_t left = 0;       // messages that left it for good
  std::uint64_t untold = 0;     // dropped messages that no notice told of
  std::uint32_t bodyCount = 0;  // for `origin`
  bool extended = false;        // the fallback is in use
  bool connected = false;
  bool closed = false;  // takes nothing more
  bool stop = false;    // the thread ends
  Retry retry;
  Clock::time_point lastUse;      // of the connection
  Clock::time_point lastMessage;  // sent
  SenderCounters counters;        // `waiting` is filled in when asked for
  std::thread thread;
};

AsyncSender::Core::Core(std::unique_ptr<SenderTransport> way, AsyncSenderOptions chosen)
    : options(std::move(chosen)),
      transport(std::move(way)),
      senderNumber(std::random_device{}()),
      retry(options.retryMs, options.mostRetryMs) {
  if (!options.now || !transport || options.queueCapacity == 0) {
    throw std::invalid_argument("a sender needs a clock, a transport and room for a message");
  }
  thread = std::thread([this] { Run(); });
}

SenderCounters AsyncSender::Core::Counters() const {
  const std::lock_guard lock(mutex);
  SenderCounters now = counters;
  now.waiting = queue.size() + (inFlight ? 1 : 0);
  return now;
}

// --- Taking messages in, on the callers' threads.

SendResult AsyncSender::Core::MakePieces(const SenderEntry& entry, std::vector<LogMessageBody>& pieces) {
  if (entry.type >= kMessageTypes) return SendResult::BadValue;
  if (entry.source.find('\0') != std::string_view::npos || entry.text.find('\0') != std::string_view::npos) {
    return SendResult::BadValue;
  }
  if (entry.source.size() > kMostText) return SendResult::TooLong;
  if (options.longText == LongText::Refuse && entry.text.size() > kMostText) return SendResult::TooLong;
  LogMessageBody body{};
  std::memcpy(body.origin, entry.origin, sizeof(body.origin));
  std::memcpy(body.tail, entry.tail, sizeof(body.tail));
  body.type = entry.type;
  SetTime(body, entry.time == TimeWords{} ? options.now() : entry.time);
  for (const std::string& text : PiecesOf(entry.text, options.longText)) {
    FillTexts(entry.source, text, body);
    pieces.push_back(body);
  }
  return SendResult::Queued;
}

std::size_t AsyncSender::Core::Limit() const {
  return options.queueCapacity + (extended ? options.fallbackCapacity : 0);
}

void AsyncSender::Core::Drop(std::size_t count) {
  counters.dropped += count;
  untold += count;
}

SendResult AsyncSender::Core::MakeRoom(Lock& lock, std::size_t count) {
  if (options.overflow == Overflow::Block) {
    settled.wait(lock, [&] { return closed || counters.away || Fits(count); });
  }
  if (closed) return SendResult::Closed;
  while (options.overflow == Overflow::DropOldest && !Fits(count)) {
    queue.pop_front();
    ++left;
    Drop(1);
  }
  return Fits(count) ? SendResult::Queued : SendResult::Dropped;
}

SendResult AsyncSender::Core::Submit(const SenderEntry& entry) {
  std::vector<LogMessageBody> pieces;
  SendResult result = MakePieces(entry, pieces);
  const std::size_t count = std::max<std::size_t>(pieces.size(), 1);
  Lock lock(mutex);
  if (result == SendResult::Queued) result = MakeRoom(lock, count);
  counters.submitted += count;
  if (result == SendResult::Dropped) {
    Drop(count);
  } else if (result != SendResult::Queued) {
    counters.refused += count;
  } else {
    for (LogMessageBody& body : pieces) {
      if (IsZero(body.origin)) {
        ++bodyCount;
        std::memcpy(&body.origin[0], &senderNumber, sizeof(senderNumber));
        std::memcpy(&body.origin[4], &bodyCount, sizeof(bodyCount));
      }
      queue.push_back(body);
    }
    queued += count;
    counters.mostWaiting = std::max<std::uint64_t>(counters.mostWaiting, queue.size());
  }
  work.notify_one();
  return result;
}

bool AsyncSender::Core::Flush(std::uint32_t timeoutMs) {
  const auto end = Clock::now() + milliseconds(timeoutMs);
  Lock lock(mutex);
  const std::uint64_t target = queued;
  retry.Reset();
  work.notify_one();
  return settled.wait_until(lock, end, [&] { return left >= target; });
}

bool AsyncSender::Core::Close(std::uint32_t timeoutMs) {
  const auto end = Clock::now() + milliseconds(timeoutMs);
  const std::lock_guard only(closing);
  if (!thread.joinable()) return true;
  bool all = false;
  {
    Lock lock(mutex);
    closed = true;
    retry.Reset();
    work.notify_one();
    settled.notify_all();
    all = settled.wait_until(lock, end, [&] { return left >= queued && untold == 0; });
    stop = true;
    counters.dropped += queue.size();
    left += queue.size();
    queue.clear();
    work.notify_one();
  }
  thread.join();
  settled.notify_all();
  return all;
}

// --- Sending, on the sender's own thread.

void AsyncSender::Core::Run() {
  Lock lock(mutex);
  while (!stop) {
    if (NoticeIsDue() && MayTry()) {
      SendNotice(lock);
    } else if (!queue.empty() && MayTry()) {
      SendFront(lock);
    } else {
      WaitForWork(lock);
    }
  }
  lock.unlock();
  transport->Disconnect();
}

// When there is room again: as long as the queue overflows, a notice would only be the first of many.
bool AsyncSender::Core::NoticeIsDue() const {
  return untold > 0 && queue.size() <= options.queueCapacity / 2;
}

void AsyncSender::Core::WaitForWork(Lock& lock) {
  auto until = Clock::now() + kLongWait;
  if (counters.away && (!queue.empty() || untold > 0)) {
    until = retry.Next();
  } else if (connected) {
    until = lastUse + milliseconds(options.pingMs);
    if (Clock::now() >= until) {
      KeepAlive(lock);
      return;
    }
  }
  work.wait_until(lock, until);
}

void AsyncSender::Core::KeepAlive(Lock& lock) {
  const bool active = Clock::now() - lastMessage < milliseconds(options.activeMs);
  lock.unlock();
  const Status status = active ? transport->Ping() : Status::Ok;
  if (!active || status != Status::Ok) transport->Disconnect();
  lock.lock();
  lastUse = Clock::now();
  connected = active && status == Status::Ok;
}

Status AsyncSender::Core::SendUnlocked(Lock& lock, const LogMessageBody& message) {
  lock.unlock();
  const Status status = transport->Submit(message);
  lock.lock();
  lastUse = lastMessage = Clock::now();
  const Outcome outcome = OutcomeOf(status);
  if (outcome == Outcome::Taken || outcome == Outcome::Refused) {
    Reached();
  } else {
    NotReached(status);
  }
  return status;
}

void AsyncSender::Core::SendFront(Lock& lock) {
  const LogMessageBody message = queue.front();
  queue.pop_front();
  inFlight = true;
  const Outcome outcome = OutcomeOf(SendUnlocked(lock, message));
  inFlight = false;
  const bool again =
      outcome == Outcome::NotReached || (outcome == Outcome::Doubtful && options.resendDoubtful);
  if (again && !stop) {
    if (outcome == Outcome::Doubtful) ++counters.resent;
    queue.push_front(message);
  } else {
    ++left;
    if (outcome == Outcome::Taken) ++counters.sent;
    if (outcome == Outcome::Refused) ++counters.refused;
    if (outcome == Outcome::Doubtful) ++counters.doubtful;
    if (outcome == Outcome::NotReached) ++counters.dropped;  // the sender was closed meanwhile
  }
  settled.notify_all();
}

void AsyncSender::Core::SendNotice(Lock& lock) {
  const std::uint64_t told = untold;
  LogMessageBody body{};
  body.type = options.noticeType;
  FillTexts(options.noticeSource, std::to_string(told) + " messages dropped", body);
  SetTime(body, options.now());
  const Outcome outcome = OutcomeOf(SendUnlocked(lock, body));
  if (outcome == Outcome::Taken) ++counters.notices;
  if (outcome == Outcome::Taken || outcome == Outcome::Refused) untold -= told;
  settled.notify_all();
}

void AsyncSender::Core::Reached() {
  if (!connected) ++counters.connects;
  connected = true;
  counters.away = false;
  if (queue.size() <= options.queueCapacity) extended = false;
  retry.Reset();
}

void AsyncSender::Core::NotReached(Status status) {
  ++counters.failures;
  counters.lastFailure = status;
  counters.away = true;
  extended = true;
  connected = false;
  retry.Failed();
}

// --- The outside.

AsyncSender::AsyncSender(std::unique_ptr<SenderTransport> transport, AsyncSenderOptions chosen)
    : core(std::make_unique<Core>(std::move(transport), std::move(chosen))) {}

AsyncSender::~AsyncSender() = default;

SendResult AsyncSender::Submit(const SenderEntry& entry) {
  return core->Submit(entry);
}

bool AsyncSender::Flush(std::uint32_t timeoutMs) {
  return core->Flush(timeoutMs);
}

bool AsyncSender::Close(std::uint32_t timeoutMs) {
  return core->Close(timeoutMs);
}

SenderCounters AsyncSender::Counters() const {
  return core->Counters();
}

}  // namespace TamLogClient
