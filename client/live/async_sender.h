#pragma once

// Sends messages without making their senders wait for the server: a bounded queue, and one thread that
// empties it. A message has the time of its Submit, so that it is sorted in where it belongs however long it
// waited.
//
//   AsyncSenderOptions options;
//   options.now = LocalNow;
//   AsyncSender sender(MakeLogClientTransport({}), options);
//   sender.Submit({.type = 1, .source = "Stage", .text = "homed"});
//
// While the server cannot be reached, the queue may grow by `fallbackCapacity`; everything in it is sent when
// the server is back. No message is lost silently: each one ends in exactly one of the counters, and after
// dropped messages the sender logs a message of its own ("12 messages dropped").
//
// Thread-safe, except for the destructor. The server ends a connection after ten silent seconds: the sender
// pings while the last message is recent, and closes the connection after that.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "client/live/retry_pause.h"
#include "client/live/sender_transport.h"
#include "client/message/status.h"
#include "client/message/time_text.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// How Submit handles a full queue.
enum class Overflow : std::uint8_t {
  Block,       // waits for room; while the server cannot be reached: as DropNewest
  DropNewest,  // drops the submitted message
  DropOldest,  // drops the message that has waited longest
};

// How Submit handles a text of more than 256 bytes.
enum class LongText : std::uint8_t {
  Split,     // sends several messages of the same time
  Truncate,  // sends the first 256 bytes, the mark "..." included
  Refuse,    // sends nothing
};

struct AsyncSenderOptions {
  std::size_t queueCapacity = 1024;      // messages; at least 1
  std::size_t fallbackCapacity = 10000;  // more messages while the server cannot be reached
  Overflow overflow = Overflow::Block;
  LongText longText = LongText::Split;
  // Whether a message is sent again when the connection ended before the answer came. It may then be stored
  // twice, with the same `origin`. Otherwise it is counted as doubtful.
  bool resendDoubtful = true;
  std::uint32_t retryMs = 250;       // pause after a failure; doubles from failure to failure ...
  std::uint32_t mostRetryMs = 5000;  // ... up to this
  std::uint32_t pingMs = 3000;       // a connection that was silent for this long is pinged ...
  std::uint32_t activeMs = 30000;    // ... while the last message is not older than this; then it is closed
  std::uint32_t closeMs = 2000;      // how long the destructor sends what still waits
  std::string noticeSource = "tamlog";  // source of the message that reports dropped ones; at most 256 bytes
  std::uint32_t noticeType = 0;
  std::function<TimeWords()> now;  // returns the local time; may be called from several threads; required
};

struct SenderEntry {
  std::uint32_t type = 0;     // 0 to 3
  std::string_view source{};  // at most 256 bytes
  std::string_view text{};    // any length
  TimeWords time{};           // all zero: now
  std::uint8_t origin[8]{};   // all zero: a number of this sender and one of this message
  std::uint8_t tail[4]{};
};

enum class SendResult : std::uint8_t {
  Queued,
  Dropped,   // no room
  TooLong,   // the source, or with LongText::Refuse the text
  BadValue,  // a type above 3, or a zero byte in a text
  Closed,    // the sender was closed
};

// A text that was split counts as often as it has pieces. At any moment
//   submitted = waiting + sent + dropped + refused + doubtful.
struct SenderCounters {
  std::uint64_t submitted = 0;
  std::uint64_t waiting = 0;   // in the queue or being sent
  std::uint64_t sent = 0;      // accepted by the server
  std::uint64_t dropped = 0;   // no room, or still waiting when the sender was closed
  std::uint64_t refused = 0;   // by the sender (too long, bad value, closed) or by the server
  std::uint64_t doubtful = 0;  // sent, but the answer did not come
  std::uint64_t resent = 0;    // attempts after an answer that did not come
  std::uint64_t notices = 0;   // the sender's own messages, in none of the numbers above
  std::uint64_t connects = 0;  // connections over which the server answered
  std::uint64_t failures = 0;  // attempts that did not reach the server
  std::uint64_t mostWaiting = 0;
  bool away = false;  // the last attempt did not reach the server
  Status lastFailure = Status::Ok;
};

class AsyncSender {
 public:
  // Starts the thread; does not connect. Throws std::invalid_argument without clock, transport or queue.
  AsyncSender(std::unique_ptr<SenderTransport> senderTransport, AsyncSenderOptions chosen);

  // Closes with `closeMs`. No other thread may be in a call.
  ~AsyncSender() { Close(options.closeMs); }
  AsyncSender(const AsyncSender&) = delete;
  AsyncSender& operator=(const AsyncSender&) = delete;

  // Puts a message into the queue; its texts are copied. Waits only with Overflow::Block.
  SendResult Submit(const SenderEntry& entry);

  // Waits until everything submitted before has left the queue, `timeoutMs` at most. Returns false when
  // something is still waiting. A server that could not be reached is tried again at once.
  bool Flush(std::uint32_t timeoutMs);

  // Accepts no more messages, sends what is waiting for `timeoutMs` at most, and drops the rest. Can take
  // longer by one call of the transport. Callers that wait for room return SendResult::Closed. Returns false
  // when something was dropped, and true when the sender was already closed.
  bool Close(std::uint32_t timeoutMs);

  SenderCounters Counters() const;

 private:
  using Clock = std::chrono::steady_clock;
  using Lock = std::unique_lock<std::mutex>;
  enum class Outcome : std::uint8_t { Accepted, Refused, Doubtful, NotReached };
  static Outcome OutcomeOf(Status status, bool gone);

  // On the callers' threads.
  SendResult MakePieces(const SenderEntry& entry, std::vector<LogMessageBody>& pieces) const;
  std::size_t Limit() const;
  bool Fits(std::size_t count) const { return queue.empty() || queue.size() + count <= Limit(); }
  SendResult MakeRoom(Lock& lock, std::size_t count);
  void Push(std::vector<LogMessageBody>& pieces);
  void CountDropped(std::size_t count);

  // On the sender's own thread.
  void Run();
  bool MayTry() const { return !counters.away || Clock::now() >= retry.Next(); }
  bool NoticeIsDue() const;
  void WaitForWork(Lock& lock);
  void KeepAlive(Lock& lock);
  Outcome Send(Lock& lock, const LogMessageBody& message);
  void SendFront(Lock& lock);
  void SendNotice(Lock& lock);
  void CountReached();
  void CountNotReached(Status status);

  const AsyncSenderOptions options;
  const std::unique_ptr<SenderTransport> transport;  // used by `thread` only
  const std::uint32_t senderNumber;
  std::mutex closing;  // one Close at a time

  mutable std::mutex mutex;         // guards everything below except `thread`
  std::condition_variable work;     // `thread` waits for it
  std::condition_variable settled;  // something left the queue, or the server cannot be reached
  std::deque<LogMessageBody> queue;
  bool inFlight = false;         // a message was taken from the front of the queue and is being sent
  std::uint64_t queued = 0;      // messages that were ever put into the queue
  std::uint64_t left = 0;        // messages that left it for good
  std::uint64_t unreported = 0;  // dropped messages that no notice reported
  std::uint32_t bodyCount = 0;   // for `origin`
  bool extended = false;         // the fallback capacity is in use
  bool connected = false;
  bool closed = false;  // no more messages are accepted
  bool stop = false;    // the thread ends
  RetryPause retry;
  Clock::time_point lastUse;      // of the connection
  Clock::time_point lastMessage;  // when it was sent
  SenderCounters counters;        // except `waiting`
  std::thread thread;
};

}  // namespace TamLogClient
