#pragma once

// Hands messages to the server without keeping their senders waiting: a bounded queue and one thread that
// empties it. Times are those of the call, so that a message that waited is sorted in where it belongs.
//
// While the server cannot be reached, the queue may grow by `fallbackCapacity`, and everything is sent when
// the server is back. Nothing is lost in silence: each message ends in exactly one of the counters, and when
// messages were dropped, a message of the sender's own ("12 messages dropped") tells the log so.
//
// Thread-safe, but for the destructor. The server ends a connection after ten silent seconds: the sender
// pings while messages came lately, and closes the connection when none did.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "client/live/sender_transport.h"
#include "client/message/status.h"
#include "client/message/time_text.h"

namespace TamLogClient {

enum class Overflow : std::uint8_t {
  Block,       // the caller waits for room; not while the server is away: then as DropNewest
  DropNewest,  // the message handed in is dropped
  DropOldest,  // the message that has waited longest is dropped
};

enum class LongText : std::uint8_t {
  Split,     // into several messages of the same time
  Truncate,  // to the first 256 bytes
  Refuse,    // not sent at all
};

struct AsyncSenderOptions {
  std::size_t queueCapacity = 1024;      // messages; at least 1
  std::size_t fallbackCapacity = 10000;  // more messages while the server is away
  Overflow overflow = Overflow::Block;
  LongText longText = LongText::Split;
  // Whether a message is sent again when the connection ended before the answer came. It may then be stored
  // twice: both have the same `origin`. Otherwise it is counted as doubtful.
  bool resendDoubtful = true;
  std::uint32_t retryMs = 250;          // pause after a failure; doubles from one to the next
  std::uint32_t mostRetryMs = 5000;     // up to this
  std::uint32_t pingMs = 3000;          // pings a connection that was silent for so long
  std::uint32_t activeMs = 30000;       // as long as the last message is not older than this
  std::uint32_t closeMs = 2000;         // the destructor's time for sending the rest
  std::string noticeSource = "tamlog";  // of the message that tells of dropped ones
  std::uint32_t noticeType = 0;
  std::function<TimeWords()> now;  // local time; may be called from several threads
};

struct SenderEntry {
  std::uint32_t type = 0;
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
  std::uint64_t waiting = 0;   // in the queue or on its way
  std::uint64_t sent = 0;      // the server took them
  std::uint64_t dropped = 0;   // no room, or still there when the sender was closed
  std::uint64_t refused = 0;   // by the sender (too long, bad value, closed) or by the server
  std::uint64_t doubtful = 0;  // sent, but the answer did not come
  std::uint64_t resent = 0;    // attempts after an answer that did not come
  std::uint64_t notices = 0;   // messages of the sender's own, in none of the numbers above
  std::uint64_t connects = 0;  // connections that stood
  std::uint64_t failures = 0;  // attempts that did not reach the server
  std::uint64_t mostWaiting = 0;
  bool away = false;  // the last attempt did not reach the server
  Status lastFailure = Status::Ok;
};

class AsyncSender {
 public:
  AsyncSender(std::unique_ptr<SenderTransport> transport, AsyncSenderOptions chosen);
  // Closes with `closeMs`. No other thread may be in a call.
  ~AsyncSender();
  AsyncSender(const AsyncSender&) = delete;
  AsyncSender& operator=(const AsyncSender&) = delete;

  // Waits only with Overflow::Block. The texts are copied.
  SendResult Submit(const SenderEntry& entry);

  // Waits until everything submitted before has left the queue, `timeoutMs` at most. False when something is
  // still waiting. Makes the sender try at once to reach a server that is away.
  bool Flush(std::uint32_t timeoutMs);

  // Takes no more messages, sends what is waiting for `timeoutMs` at most, and drops the rest. Can take
  // longer by one call of the transport. Callers that wait for room get SendResult::Closed. False when
  // something was left over; true again and again when it was called before.
  bool Close(std::uint32_t timeoutMs);

  SenderCounters Counters() const;

 private:
  class Core;
  std::unique_ptr<Core> core;
};

}  // namespace TamLogClient
