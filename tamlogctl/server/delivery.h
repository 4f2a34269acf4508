#pragma once

// Sends messages so that each one arrives exactly once, over any number of restarts of the server. A server
// that stops loses the messages that it has accepted but not yet written into the log. So after each lost
// connection the log is read: the messages that it lacks are sent again, those that it has are not. Messages
// are identified by their bytes; equal ones are counted.
//
//   Delivery delivery(target, {.capacity = settings.maxMessage});
//   for (const LogMessageBody& message : messages) {
//     if (const int code = delivery.Send(message); code != kDone) return code;
//   }
//   const int code = delivery.Finish();
//
// A message that was seen in the log once has arrived: it is not sent again when the log is emptied later.
// One thread.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <utility>

#include "client/log/log_snapshot.h"
#include "client/message/log_message_view.h"
#include "client/message/status.h"
#include "tamlogctl/server/message_counts.h"

namespace TamLogCtl {

// The server as a delivery needs it. Every call returns in bounded time.
class DeliveryTarget {
 public:
  DeliveryTarget() = default;
  virtual ~DeliveryTarget() = default;
  DeliveryTarget(const DeliveryTarget&) = delete;
  DeliveryTarget& operator=(const DeliveryTarget&) = delete;

  // Connects before sending if necessary. The statuses are those of LogClient::Submit.
  virtual TamLogClient::Status Submit(const LogMessageBody& message) = 0;
  // Returns Ok when the server has carried out every request that it received before.
  virtual TamLogClient::Status Answers() = 0;
  virtual void Disconnect() = 0;
  // Returns the number of connections made so far.
  virtual std::uint64_t Connections() const = 0;
  virtual TamLogClient::Status ReadLog(TamLogClient::LogSnapshot& log) = 0;
  // Returns milliseconds since some moment; never goes back.
  virtual std::uint64_t Now() const = 0;
  // Returns false when the user interrupted the program.
  virtual bool Sleep(std::uint32_t milliseconds) = 0;
  // Reports an event to the user.
  virtual void Report(const std::string& line) = 0;
};

struct DeliveryOptions {
  std::uint64_t retryMs = 30000;  // how long to wait for a server that is gone
  std::size_t capacity = 0;       // of the log, in messages; 0: unknown
};

class Delivery {
 public:
  Delivery(DeliveryTarget& server, const DeliveryOptions& chosen) : target(server), options(chosen) {}

  // Sets how many copies of some messages the log holds before the first Send. It has to name every message
  // that is sent more than once or that the log may hold already.
  void SetKnown(MessageCounts counts) { known = std::move(counts); }

  // Sends a message, and those again that a restart has lost. `number` is the caller's name for it; numbers
  // do not fall. kDone: the server has accepted or refused it. Any other exit code: the delivery cannot
  // continue; the reason was reported.
  int Send(const LogMessageBody& message, std::size_t number = 0);

  // Waits until the log shows the messages, and sends those again that a restart has lost.
  int Finish();

  // Reads the log, so that the numbers below are up to date. Returns false when it cannot be read.
  bool Review();

  std::size_t Sent() const { return sent; }            // calls of Send
  std::size_t Arrived() const { return arrived; }      // seen in the log
  std::size_t TooOld() const { return tooOld; }        // older than everything in the full log
  std::size_t Refused() const { return refused; }      // by the server
  std::size_t SentAgain() const { return sentAgain; }  // attempts after lost connections
  std::size_t Losses() const { return losses; }        // lost connections that were handled
  TamLogClient::Status LastRefusal() const { return lastRefusal; }

  // Returns the number of the first message whose arrival is not certain; 0 when all are.
  std::size_t FirstUncertain() const { return waiting.empty() ? 0 : waiting.front().number; }

 private:
  struct Entry {
    LogMessageBody body{};
    TamLogClient::MessageIdentity identity;
    std::size_t number = 0;
    std::uint64_t sentAt = 0;
    std::uint64_t connection = 0;  // over which the server accepted it; 0: none
  };
  enum class Outcome : std::uint8_t { Accepted, Refused, Lost };

  Outcome Submit(Entry& entry);
  int Recover();
  int Deliver(bool untilSeen);
  int WaitForAnswer(std::uint64_t giveUpAt);
  int GiveUp();
  bool Settle();
  bool HasLost() const;
  bool SendLostAgain();
  void RemoveArrived(const TamLogClient::LogSnapshot& log);
  void ReviewSometimes();
  int Pace();

  DeliveryTarget& target;
  const DeliveryOptions options;
  MessageCounts known;         // copies of messages that the last review found
  std::deque<Entry> waiting;   // sent, not yet seen in the log
  std::uint64_t current = 0;   // number of the connection that is in use
  std::uint64_t reviewed = 0;  // when the log was last read
  std::uint64_t reviewMs = 0;  // how long that took
  std::uint64_t lastSent = 0;
  std::size_t inFlush = 0;
  std::size_t sent = 0;
  std::size_t arrived = 0;
  std::size_t tooOld = 0;
  std::size_t refused = 0;
  std::size_t sentAgain = 0;
  std::size_t losses = 0;
  bool refuses = false;  // the server, the last message
  TamLogClient::Status lastFailure = TamLogClient::Status::Ok;
  TamLogClient::Status lastRefusal = TamLogClient::Status::Ok;
};

}  // namespace TamLogCtl
