// The C interface to AsyncSender.

#include <memory>

#include "client/c/c_interface.h"
#include "client/live/async_sender.h"
#include "client/live/log_client_transport.h"
#include "client/message/local_time.h"

using TamLogClient::AsyncSender;
using TamLogClient::AsyncSenderOptions;
using TamLogClient::Guarded;
using TamLogClient::SendResult;

struct tamlog_sender {
  tamlog_sender(std::unique_ptr<TamLogClient::SenderTransport> transport, const AsyncSenderOptions& options)
      : sender(std::move(transport), options) {}
  AsyncSender sender;
};

namespace {

constexpr std::uint32_t kCallMs = 2000;
// Short, so that an absent server is noticed soon: nothing is sent while the pipe is searched for.
constexpr std::uint32_t kAbsentMs = 200;

bool IsKnown(const tamlog_sender_options& given) {
  constexpr std::uint32_t kFlags = TAMLOG_SENDER_NO_FALLBACK | TAMLOG_SENDER_NO_RESEND;
  return given.overflow >= TAMLOG_OVERFLOW_BLOCK && given.overflow <= TAMLOG_OVERFLOW_DROP_OLDEST &&
         given.long_text >= TAMLOG_LONG_SPLIT && given.long_text <= TAMLOG_LONG_REFUSE &&
         (given.flags & ~kFlags) == 0 && given.notice_type < kMessageTypes;
}

AsyncSenderOptions Chosen(const tamlog_sender_options& given) {
  AsyncSenderOptions chosen;
  chosen.now = TamLogClient::LocalNow;
  chosen.overflow = static_cast<TamLogClient::Overflow>(given.overflow);
  chosen.longText = static_cast<TamLogClient::LongText>(given.long_text);
  chosen.resendDoubtful = (given.flags & TAMLOG_SENDER_NO_RESEND) == 0;
  if (given.queue_capacity != 0) chosen.queueCapacity = given.queue_capacity;
  if (given.fallback_capacity != 0) chosen.fallbackCapacity = given.fallback_capacity;
  if ((given.flags & TAMLOG_SENDER_NO_FALLBACK) != 0) chosen.fallbackCapacity = 0;
  if (given.close_ms != 0) chosen.closeMs = given.close_ms;
  if (given.notice_source != nullptr) chosen.noticeSource = given.notice_source;
  chosen.noticeType = given.notice_type;
  return chosen;
}

tamlog_status CodeOfResult(SendResult result) {
  switch (result) {
    case SendResult::Queued:
      return TAMLOG_OK;
    case SendResult::Dropped:
      return TAMLOG_DROPPED;
    case SendResult::TooLong:
      return TAMLOG_TOO_LONG;
    case SendResult::BadValue:
      return TAMLOG_BAD_VALUE;
    case SendResult::Closed:
      return TAMLOG_CLOSED;
  }
  return TAMLOG_INTERNAL;
}

}  // namespace

tamlog_status TAMLOG_CALL tamlog_sender_open(const tamlog_sender_options* options, tamlog_sender** sender) {
  tamlog_sender_options given;
  if (sender == nullptr || !TamLogClient::CopyIn(options, given) || !IsKnown(given)) {
    return TAMLOG_BAD_ARGUMENT;
  }
  return Guarded([&] {
    TamLogClient::LogClientOptions way;
    way.timeoutMs = given.timeout_ms != 0 ? given.timeout_ms : kCallMs;
    way.absentMs = kAbsentMs;
    if (given.pipe_name != nullptr) way.pipeName = given.pipe_name;
    const AsyncSenderOptions chosen = Chosen(given);
    if (chosen.noticeSource.size() >= kTextSize) return TAMLOG_TOO_LONG;
    *sender = std::make_unique<tamlog_sender>(TamLogClient::MakeLogClientTransport(way), chosen).release();
    return TAMLOG_OK;
  });
}

void TAMLOG_CALL tamlog_sender_close(tamlog_sender* sender) {
  const std::unique_ptr<tamlog_sender> owned(sender);
}

tamlog_status TAMLOG_CALL tamlog_sender_submit(tamlog_sender* sender, const tamlog_entry* entry) {
  tamlog_entry given;
  if (sender == nullptr || entry == nullptr || !TamLogClient::CopyIn(entry, given)) {
    return TAMLOG_BAD_ARGUMENT;
  }
  return Guarded([&] {
    TamLogClient::SenderEntry copied;
    copied.type = given.type;
    copied.source = TamLogClient::SourceOf(given);
    copied.text = TamLogClient::TextOf(given);
    copied.time = TamLogClient::WordsOfTime(given.time);
    std::memcpy(copied.origin, given.origin, sizeof(copied.origin));
    std::memcpy(copied.tail, given.tail, sizeof(copied.tail));
    return CodeOfResult(sender->sender.Submit(copied));
  });
}

tamlog_status TAMLOG_CALL tamlog_sender_flush(tamlog_sender* sender, uint32_t timeout_ms) {
  if (sender == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] { return sender->sender.Flush(timeout_ms) ? TAMLOG_OK : TAMLOG_TIMED_OUT; });
}

tamlog_status TAMLOG_CALL tamlog_sender_finish(tamlog_sender* sender, uint32_t timeout_ms) {
  if (sender == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] { return sender->sender.Close(timeout_ms) ? TAMLOG_OK : TAMLOG_TIMED_OUT; });
}

tamlog_status TAMLOG_CALL tamlog_sender_get_counters(tamlog_sender* sender,
                                                     tamlog_sender_counters* counters) {
  if (sender == nullptr || !TamLogClient::CanReceive(counters)) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] {
    const TamLogClient::SenderCounters now = sender->sender.Counters();
    tamlog_sender_counters result{};
    result.away = now.away ? 1 : 0;
    result.last_failure = TamLogClient::CodeOf(now.lastFailure);
    result.submitted = now.submitted;
    result.waiting = now.waiting;
    result.sent = now.sent;
    result.dropped = now.dropped;
    result.refused = now.refused;
    result.doubtful = now.doubtful;
    result.resent = now.resent;
    result.notices = now.notices;
    result.connects = now.connects;
    result.failures = now.failures;
    result.most_waiting = now.mostWaiting;
    TamLogClient::CopyOut(result, counters);
    return TAMLOG_OK;
  });
}
