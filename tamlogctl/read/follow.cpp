#include "tamlogctl/read/follow.h"

#include <vector>

#include "client/live/log_stream.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/wait.h"
#include "tamlogctl/read/log_input.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogItem;
using TamLogClient::LogSnapshot;
using TamLogClient::LogStream;
using TamLogClient::Status;

class Follower {
 public:
  Follower(const ShowOptions& chosen, FollowTarget& to, ReadingPosition& from)
      : options(chosen), target(to), position(from), stream(StreamOptions(chosen, to)) {}

  int Run();

 private:
  static constexpr std::uint32_t kStepMs = 50;         // the delay until Ctrl-C is noticed
  static constexpr std::uint64_t kKeepEveryMs = 1000;  // how often the cursor file is written

  static TamLogClient::LogStreamOptions StreamOptions(const ShowOptions& options, const FollowTarget& to) {
    TamLogClient::LogStreamOptions stream;
    stream.timeoutMs = options.timeoutMs;
    stream.intervalMs = options.intervalMs;
    stream.ordered = options.ordered;
    stream.numberTwins = to.ShowsCursors();
    return stream;
  }

  Status Begin();
  int Loop();
  Status Drain(std::uint32_t waitMs);
  void Take(const LogItem& item);
  int Keep(bool atEnd);

  const ShowOptions& options;
  FollowTarget& target;
  ReadingPosition& position;
  LogStream stream;
  std::uint64_t nextKeep = 0;  // ticks
  bool news = true;            // messages or events since the cursor file was written
};

int Follower::Run() {
  const Status status = Begin();
  if (!Readable(status)) return ExplainStatus(status);
  int exitCode = Loop();
  stream.ReleaseAll();
  const Status drained = Drain(0);
  if (drained != Status::TimedOut && exitCode == kDone) exitCode = ExplainStatus(drained);
  stream.Close();
  if (!target.Finish()) return kOutputFailed;
  position.ShowCursor(stream.Snapshot());
  if (const int kept = Keep(true); kept != kDone) return kept;
  if (exitCode != kDone) return exitCode;
  return target.NothingMatched() ? kNegative : kDone;
}

Status Follower::Begin() {
  const Status status = position.Memory() ? stream.Open(*position.Memory(), position.Held()) : stream.Open();
  if (!Readable(status) || position.Memory()) return status;
  const LogSnapshot& snapshot = stream.Snapshot();
  target.PrintLast(position.Beyond(snapshot), snapshot);
  return status;
}

int Follower::Loop() {
  const std::uint64_t end =
      options.forSeconds ? Ticks() + static_cast<std::uint64_t>(*options.forSeconds * 1000) : 0;
  for (;;) {
    const Status status = Drain(kStepMs);
    if (!target.Flush()) return kOutputFailed;
    if (status != Status::TimedOut) return ExplainStatus(status);
    if (const int kept = Keep(false); kept != kDone) return kept;
    if (Interrupted()) return kInterrupted;
    if (end != 0 && Ticks() >= end) return kDone;
  }
}

// Takes all that one look at the log brought, waiting `waitMs` for the first item; returns TimedOut when
// nothing is left of it. Another look may bring more at once, for as long as messages keep coming.
Status Follower::Drain(std::uint32_t waitMs) {
  LogItem item;
  Status status = stream.Next(item, waitMs);
  while (status == Status::Ok && !target.OutputFailed()) {
    Take(item);
    if (stream.Drained()) return Status::TimedOut;
    status = stream.Next(item, 0);
  }
  return status == Status::Ok ? Status::TimedOut : status;
}

void Follower::Take(const LogItem& item) {
  const EventReporter reporter = options.Reporter();
  news = true;
  // What was written before such an event is hard to recognize after it, so no run may end without a note in
  // between.
  if (item.kind != LogItem::Kind::Message) nextKeep = 0;
  switch (item.kind) {
    case LogItem::Kind::Message:
      return target.Print(*item.message, item.late, item.twin);
    case LogItem::Kind::Lost:
      target.Gap();
      return reporter.ReportLost(item.loss);
    case LogItem::Kind::Cleared:
      target.Gap();
      return reporter.ReportCleared();
    case LogItem::Kind::Stopped:
      return reporter.ReportStopped();
    case LogItem::Kind::Reopened:
      return reporter.ReportReopened();
    case LogItem::Kind::Blocked:
      return reporter.ReportBlocked();
  }
}

// Every message that the memory contains was printed, or is held back and stored as such.
int Follower::Keep(bool atEnd) {
  if (options.cursorFile.empty() || !news ||
      (!atEnd && (Ticks() < nextKeep || stream.HeldBack() > kMostHeld))) {
    return kDone;
  }
  nextKeep = Ticks() + kKeepEveryMs;
  news = false;
  const auto place = target.Note();
  if (target.OutputFailed()) return kOutputFailed;
  return position.Keep(stream.Snapshot(), stream.Memory(kRememberedMessages), stream.HeldMessages(), place);
}

}  // namespace

int Follow(const ShowOptions& options, FollowTarget& target, ReadingPosition& position) {
  return Follower(options, target, position).Run();
}

}  // namespace TamLogCtl
