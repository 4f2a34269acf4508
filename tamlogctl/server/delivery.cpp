#include "tamlogctl/server/delivery.h"

#include <algorithm>
#include <vector>

#include "tamlogctl/base/exit_code.h"

namespace TamLogCtl {

namespace {

using TamLogClient::IdentityOf;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

// The server writes what it has accepted every 200 ms.
constexpr std::uint32_t kFlushMs = 300;
constexpr std::uint32_t kLookMs = 100;  // between two attempts to reach the server
constexpr std::uint64_t kReviewMs = 2000;
// The part of the time that reading the log may take: one in so many.
constexpr std::uint64_t kReviewPart = 20;
// The server has dropped a message that is not in the log for so long after it was accepted.
constexpr std::uint64_t kForgetMs = 30000;
constexpr std::size_t kMostWaiting = 100000;
constexpr std::uint64_t kIdleMs = 5000;  // the client renews a connection that was silent for so long
constexpr int kMostRefusals = 4;

bool IsRefusal(Status status) {
  return status == Status::Refused || status == Status::BadValue || status == Status::TooLong;
}

}  // namespace

// A server that is about to stop or has just started may refuse everything for a moment. One that refuses for
// longer is not asked again for every message.
Delivery::Outcome Delivery::Submit(Entry& entry) {
  for (int attempt = 1;; ++attempt) {
    const Status status = target.Submit(entry.body);
    entry.sentAt = target.Now();
    if (status == Status::Ok) {
      entry.connection = target.Connections();
      refuses = false;
      return Outcome::Accepted;
    }
    entry.connection = 0;
    const bool again =
        status == Status::Refused && !refuses && attempt < kMostRefusals && target.Sleep(kFlushMs);
    if (again) continue;
    refuses = status == Status::Refused;
    (IsRefusal(status) ? lastRefusal : lastFailure) = status;
    return IsRefusal(status) ? Outcome::Refused : Outcome::Lost;
  }
}

int Delivery::Send(const LogMessageBody& message, std::size_t number) {
  ++sent;
  waiting.push_back({message, IdentityOf(message), number});
  const Outcome outcome = Submit(waiting.back());
  if (outcome == Outcome::Refused) {
    waiting.pop_back();
    ++refused;
    return kDone;
  }
  // The connection was renewed, and no earlier message can have been lost with the last one.
  if (outcome == Outcome::Accepted && waiting.size() == 1) current = target.Connections();
  if (outcome == Outcome::Lost || target.Connections() != current) {
    if (const int code = Recover(); code != kDone) return code;
  }
  ReviewSometimes();
  return Pace();
}

// Until `giveUpAt`. Makes the server's connection the current one.
int Delivery::WaitForAnswer(std::uint64_t giveUpAt) {
  for (;;) {
    const Status status = target.Answers();
    if (status == Status::Ok) break;
    lastFailure = status;
    target.Disconnect();
    if (target.Now() >= giveUpAt) return GiveUp();
    if (!target.Sleep(kLookMs)) return kInterrupted;
  }
  current = target.Connections();
  return kDone;
}

int Delivery::GiveUp() {
  const std::string patience = " for " + std::to_string(options.retryMs / 1000) + " s";
  target.Report(lastFailure == Status::NotRunning
                    ? "the server did not come back" + patience
                    : "the server could not be reached" + patience + ": " + Explain(lastFailure));
  return ExitCodeOf(lastFailure);
}

// Reads the log until it shows no more of the messages. Returns whether it was the log of one run of the
// server from beginning to end; only then a message that it lacks is not going to appear any more.
bool Delivery::Settle() {
  for (std::size_t last = SIZE_MAX; !waiting.empty();) {
    if (!target.Sleep(kFlushMs)) return false;
    if (target.Answers() != Status::Ok || target.Connections() != current || !Review()) return false;
    if (waiting.size() == last) return true;
    last = waiting.size();
  }
  return true;
}

int Delivery::Recover() {
  const std::uint64_t silence = target.Now() - lastSent;
  ++losses;
  if (waiting.back().connection == 0 || silence < kIdleMs)
    target.Report("the connection was lost after " + std::to_string(sent - 1) +
                  " messages; waiting for the server");
  return Deliver(false);
}

// Sends what was lost with earlier connections, until none of it is missing; with `untilSeen` until the log
// shows it.
int Delivery::Deliver(bool untilSeen) {
  std::uint64_t giveUpAt = target.Now() + options.retryMs;
  for (;;) {
    if (const int code = WaitForAnswer(giveUpAt); code != kDone) return code;
    if (Settle()) {
      giveUpAt = target.Now() + options.retryMs;
      if (!HasLost()) return kDone;
      if (SendLostAgain() && !untilSeen) return kDone;
    } else if (target.Now() >= giveUpAt) {
      return GiveUp();
    }
    if (!target.Sleep(0)) return kInterrupted;
  }
}

int Delivery::Finish() {
  return waiting.empty() ? kDone : Deliver(true);
}

bool Delivery::HasLost() const {
  return std::any_of(waiting.begin(), waiting.end(),
                     [this](const Entry& entry) { return entry.connection != current; });
}

// Returns whether the server has accepted everything over the current connection.
bool Delivery::SendLostAgain() {
  for (std::size_t i = 0; i < waiting.size();) {
    if (waiting[i].connection == current) {
      ++i;
      continue;
    }
    const Outcome outcome = Submit(waiting[i]);
    if (outcome == Outcome::Lost) return false;
    ++sentAgain;
    if (outcome == Outcome::Refused) {
      ++refused;
      waiting.erase(waiting.begin() + static_cast<std::ptrdiff_t>(i));
    }
    if (target.Connections() != current || Pace() != kDone) return false;
  }
  return true;
}

bool Delivery::Review() {
  const std::uint64_t start = target.Now();
  LogSnapshot log;
  const Status status = target.ReadLog(log);
  reviewed = target.Now();
  reviewMs = reviewed - start;
  if (status == Status::Ok) {
    RemoveArrived(log);
  } else {
    lastFailure = status;
  }
  return status == Status::Ok;
}

// Most messages of the log are none of ours; their identities are not computed. The keys are sorted, not
// hashed: any user can send messages whose times a hash table would put into one bucket.
void Delivery::RemoveArrived(const LogSnapshot& log) {
  std::vector<std::uint64_t> keys;
  keys.reserve(waiting.size());
  for (const Entry& entry : waiting) keys.push_back(TimeKey(entry.body));
  std::sort(keys.begin(), keys.end());
  const Oldest oldest = OldestOf(log);
  MessageCounts there;
  for (const std::uint32_t slot : log.RingOrder()) {
    const LogMessageBody& body = log.slots[slot].body;
    if (!known.empty() || std::binary_search(keys.begin(), keys.end(), TimeKey(body)))
      ++there[IdentityOf(body)];
  }
  MessageCounts copies = there;
  for (auto& [identity, count] : known) {
    const auto now = there.find(identity);
    const std::uint64_t present = now == there.end() ? 0 : now->second;
    if (present > 0) copies[identity] -= std::min(present, count);
    count = present;
  }
  const auto isSettled = [&](const Entry& entry) {
    const auto found = copies.find(entry.identity);
    const bool isThere = found != copies.end() && found->second > 0;
    if (!isThere && oldest.LeavesRoomFor(entry.body)) return false;
    if (isThere) --found->second;
    ++(isThere ? arrived : tooOld);
    return true;
  };
  waiting.erase(std::remove_if(waiting.begin(), waiting.end(), isSettled), waiting.end());
}

// Without this the list of messages that may have been lost would grow without a limit.
void Delivery::ReviewSometimes() {
  const std::uint64_t now = target.Now();
  if (waiting.empty() || now - waiting.front().sentAt < kReviewMs) return;
  if (now - reviewed < std::max(kReviewMs, kReviewPart * reviewMs) || !Review()) return;
  while (!waiting.empty() && (now - waiting.front().sentAt >= kForgetMs || waiting.size() > kMostWaiting)) {
    waiting.pop_front();
  }
}

// A flush of as many messages as the ring holds writes them newest first, and the next start of the server
// would empty such a log. So at most half as many are sent before a flush is waited for.
int Delivery::Pace() {
  const std::uint64_t now = target.Now();
  if (now - lastSent > kFlushMs) inFlush = 0;
  lastSent = now;
  if (options.capacity == 0 || ++inFlush < std::max<std::size_t>(1, options.capacity / 2)) return kDone;
  inFlush = 0;
  const bool slept = target.Sleep(kFlushMs);
  lastSent = target.Now();
  return slept ? kDone : kInterrupted;
}

}  // namespace TamLogCtl
