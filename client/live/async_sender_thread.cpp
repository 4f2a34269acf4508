// The thread's side of an AsyncSender: sending, pinging, and counting each message by its outcome.

#include <string>

#include "client/live/async_sender.h"
#include "client/message/message_body.h"

namespace TamLogClient {

namespace {

using std::chrono::milliseconds;

constexpr auto kLongWait = std::chrono::hours(1);

}  // namespace

// One that has not left this process cannot have been stored.
AsyncSender::Outcome AsyncSender::OutcomeOf(Status status, bool gone) {
  switch (status) {
    case Status::Ok:
      return Outcome::Accepted;
    case Status::Refused:
    case Status::TooLong:
    case Status::BadValue:
      return Outcome::Refused;
    case Status::Disconnected:
    case Status::TimedOut:
      return gone ? Outcome::Doubtful : Outcome::NotReached;
    default:
      return Outcome::NotReached;
  }
}

void AsyncSender::Run() {
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

// A notice waits until there is room again: while the queue overflows, it would only be the first of many.
bool AsyncSender::NoticeIsDue() const {
  return unreported > 0 && queue.size() <= options.queueCapacity / 2;
}

void AsyncSender::WaitForWork(Lock& lock) {
  auto until = Clock::now() + kLongWait;
  if (counters.away && (!queue.empty() || unreported > 0)) {
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

void AsyncSender::KeepAlive(Lock& lock) {
  const bool active = Clock::now() - lastMessage < milliseconds(options.activeMs);
  lock.unlock();
  const Status status = active ? transport->Ping() : Status::Ok;
  if (!active || status != Status::Ok) transport->Disconnect();
  lock.lock();
  lastUse = Clock::now();
  connected = active && status == Status::Ok;
}

// Sends a message without holding the lock.
AsyncSender::Outcome AsyncSender::Send(Lock& lock, const LogMessageBody& message) {
  lock.unlock();
  bool gone = false;
  const Status status = transport->Submit(message, gone);
  lock.lock();
  lastUse = lastMessage = Clock::now();
  const Outcome outcome = OutcomeOf(status, gone);
  if (outcome == Outcome::Accepted || outcome == Outcome::Refused) {
    CountReached();
  } else {
    CountNotReached(status);
  }
  return outcome;
}

void AsyncSender::SendFront(Lock& lock) {
  const LogMessageBody message = queue.front();
  queue.pop_front();
  inFlight = true;
  const Outcome outcome = Send(lock, message);
  inFlight = false;
  const bool again =
      outcome == Outcome::NotReached || (outcome == Outcome::Doubtful && options.resendDoubtful);
  if (again && !stop) {
    if (outcome == Outcome::Doubtful) ++counters.resent;
    queue.push_front(message);
  } else {
    ++left;
    if (outcome == Outcome::Accepted) ++counters.sent;
    if (outcome == Outcome::Refused) ++counters.refused;
    if (outcome == Outcome::Doubtful) ++counters.doubtful;
    if (outcome == Outcome::NotReached) ++counters.dropped;  // the sender was closed meanwhile
  }
  settled.notify_all();
}

void AsyncSender::SendNotice(Lock& lock) {
  const std::uint64_t reported = unreported;
  LogMessageBody body{};
  body.type = options.noticeType;
  FillTexts(options.noticeSource, std::to_string(reported) + " messages dropped", body);
  SetTime(body, options.now());
  const Outcome outcome = Send(lock, body);
  if (outcome == Outcome::Accepted) ++counters.notices;
  if (outcome == Outcome::Accepted || outcome == Outcome::Refused) unreported -= reported;
  settled.notify_all();
}

void AsyncSender::CountReached() {
  if (!connected) ++counters.connects;
  connected = true;
  counters.away = false;
  if (queue.size() <= options.queueCapacity) extended = false;
  retry.Reset();
}

void AsyncSender::CountNotReached(Status status) {
  ++counters.failures;
  counters.lastFailure = status;
  counters.away = true;
  extended = true;
  connected = false;
  retry.Failed();
}

}  // namespace TamLogClient
