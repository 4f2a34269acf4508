// The callers' side of an AsyncSender; async_sender_thread.cpp has the thread's side.

#include "client/live/async_sender.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>
#include <stdexcept>
#include <utility>

#include "client/message/message_body.h"
#include "client/message/text_split.h"

namespace TamLogClient {

namespace {

using std::chrono::milliseconds;

constexpr std::size_t kMostText = kTextSize - 1;

bool IsZero(const std::uint8_t (&bytes)[8]) {
  return std::all_of(std::begin(bytes), std::end(bytes), [](std::uint8_t byte) { return byte == 0; });
}

bool HasZeroByte(std::string_view text) {
  return text.find('\0') != std::string_view::npos;
}

std::vector<std::string> PiecesOf(std::string_view text, LongText longText) {
  if (longText == LongText::Split) return SplitText(text, kMostText);
  if (longText == LongText::Truncate) return {TruncateText(text, kMostText)};
  return {std::string(text)};
}

}  // namespace

AsyncSender::AsyncSender(std::unique_ptr<SenderTransport> senderTransport, AsyncSenderOptions chosen)
    : options(std::move(chosen)),
      transport(std::move(senderTransport)),
      senderNumber(std::random_device{}()),
      retry(options.retryMs, options.mostRetryMs) {
  if (!options.now || !transport || options.queueCapacity == 0) {
    throw std::invalid_argument("a sender needs a clock, a transport and room for a message");
  }
  thread = std::thread([this] { Run(); });
}

SenderCounters AsyncSender::Counters() const {
  const std::lock_guard lock(mutex);
  SenderCounters now = counters;
  now.waiting = queue.size() + (inFlight ? 1 : 0);
  return now;
}

SendResult AsyncSender::MakePieces(const SenderEntry& entry, std::vector<LogMessageBody>& pieces) const {
  if (entry.type >= kMessageTypes) return SendResult::BadValue;
  if (HasZeroByte(entry.source) || HasZeroByte(entry.text)) return SendResult::BadValue;
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

std::size_t AsyncSender::Limit() const {
  return options.queueCapacity + (extended ? options.fallbackCapacity : 0);
}

void AsyncSender::CountDropped(std::size_t count) {
  counters.dropped += count;
  unreported += count;
}

SendResult AsyncSender::MakeRoom(Lock& lock, std::size_t count) {
  if (options.overflow == Overflow::Block) {
    settled.wait(lock, [&] { return closed || counters.away || Fits(count); });
  }
  if (closed) return SendResult::Closed;
  while (options.overflow == Overflow::DropOldest && !Fits(count)) {
    queue.pop_front();
    ++left;
    CountDropped(1);
  }
  return Fits(count) ? SendResult::Queued : SendResult::Dropped;
}

void AsyncSender::Push(std::vector<LogMessageBody>& pieces) {
  for (LogMessageBody& body : pieces) {
    if (IsZero(body.origin)) {
      ++bodyCount;
      std::memcpy(&body.origin[0], &senderNumber, sizeof(senderNumber));
      std::memcpy(&body.origin[4], &bodyCount, sizeof(bodyCount));
    }
    queue.push_back(body);
  }
  queued += pieces.size();
  counters.mostWaiting = std::max<std::uint64_t>(counters.mostWaiting, queue.size());
}

SendResult AsyncSender::Submit(const SenderEntry& entry) {
  std::vector<LogMessageBody> pieces;
  SendResult result = MakePieces(entry, pieces);
  const std::size_t count = std::max<std::size_t>(pieces.size(), 1);
  Lock lock(mutex);
  if (result == SendResult::Queued) result = MakeRoom(lock, count);
  counters.submitted += count;
  if (result == SendResult::Queued) {
    Push(pieces);
  } else if (result == SendResult::Dropped) {
    CountDropped(count);
  } else {
    counters.refused += count;
  }
  work.notify_one();
  return result;
}

bool AsyncSender::Flush(std::uint32_t timeoutMs) {
  const auto end = Clock::now() + milliseconds(timeoutMs);
  Lock lock(mutex);
  const std::uint64_t target = queued;
  retry.Reset();
  work.notify_one();
  return settled.wait_until(lock, end, [&] { return left >= target; });
}

bool AsyncSender::Close(std::uint32_t timeoutMs) {
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
    all = settled.wait_until(lock, end, [&] { return left >= queued && unreported == 0; });
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

}  // namespace TamLogClient
