// show on the log of a running server.

#include <string>
#include <vector>

#include "client/live/log_reader.h"
#include "client/message/log_message_view.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/read/follow.h"
#include "tamlogctl/read/newest.h"
#include "tamlogctl/read/printer.h"
#include "tamlogctl/read/reading_position.h"
#include "tamlogctl/read/show.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

// Copies what is needed, and lets go of the log before anything is printed: the output may be slow, and a
// stopping server waits for its readers.
Status ReadLive(const ShowOptions& options, const Printer& printer, LogSnapshot& snapshot) {
  LogReader reader;
  const Status status = reader.Open();
  if (status != Status::Ok) return status;
  const auto readTail = [&](std::size_t count, TamLogClient::LogTail& tail) {
    return reader.Newest(count, tail, options.timeoutMs) == Status::Ok;
  };
  if (auto newest = ReadNewest(options, printer, readTail)) {
    snapshot = std::move(*newest);
    return Status::Ok;
  }
  return reader.Snapshot(snapshot, options.timeoutMs);
}

int JudgeOf(Status status, const LogSnapshot& snapshot) {
  const auto damaged = OrderMessages(snapshot).damaged;
  if (status != Status::Damaged && damaged == 0) return kDone;
  return Refuse(kDamaged, status == Status::Damaged
                              ? "the log's header makes no sense"
                              : std::to_string(damaged) + " messages break a rule of the format");
}

int ShowOnce(const ShowOptions& options, Printer& printer, ReadingPosition& position) {
  LogSnapshot snapshot;
  const Status status = ReadLive(options, printer, snapshot);
  if (!Readable(status)) return ExplainStatus(status);
  if (snapshot.header.messageCount == 0 && !options.quiet && options.events == EventStyle::Text) {
    Say("the log is empty");
  }
  std::vector<const LogMessage*> messages;
  for (const std::uint32_t slot : position.Beyond(snapshot)) messages.push_back(&snapshot.slots[slot]);
  Pager pager;
  if (!options.noPager && !options.count) pager.Begin();
  printer.SetLog(snapshot.header);
  printer.PrintLast(messages);
  const bool written = printer.Finish();
  const bool paged = pager.Active();
  if (!pager.End() || (!written && !paged)) return kOutputFailed;
  if (Interrupted()) return kInterrupted;
  position.ShowCursor(snapshot);
  if (!position.Keep(snapshot)) return kOutputFailed;
  const int damage = JudgeOf(status, snapshot);
  return printer.NothingMatched() ? WorseOf(damage, kNegative) : damage;
}

}  // namespace

int ExplainStatus(Status status) {
  if (status == Status::NotRunning)
    return Refuse(ExitCodeOf(status), Explain(status) + ", or read a copied log with --file");
  return Refuse(status);
}

int ShowLive(const ShowOptions& options) {
  auto printer = Printer::Make(options);
  auto position = printer ? ReadingPosition::Make(options) : std::nullopt;
  if (!printer || !position) return kUsage;
  DeferInterrupts();
  return options.follow ? Follow(options, *printer, *position) : ShowOnce(options, *printer, *position);
}

}  // namespace TamLogCtl
