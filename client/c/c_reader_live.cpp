// The C interface to the log of the running server.

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "client/c/c_reader.h"
#include "client/live/log_reader.h"
#include "client/live/log_stream.h"
#include "client/log/header_counters.h"
#include "client/log/log_follower.h"

using TamLogClient::CodeOf;
using TamLogClient::Cursor;
using TamLogClient::Guarded;
using TamLogClient::LogItem;
using TamLogClient::LogReader;
using TamLogClient::LogStream;
using TamLogClient::LogView;
using TamLogClient::Status;

namespace {

constexpr std::uint32_t kReopenMs = 100;

std::int32_t KindOf(LogItem::Kind kind) {
  switch (kind) {
    case LogItem::Kind::Message:
      return TAMLOG_ITEM_MESSAGE;
    case LogItem::Kind::Lost:
      return TAMLOG_ITEM_LOST;
    case LogItem::Kind::Cleared:
      return TAMLOG_ITEM_CLEARED;
    case LogItem::Kind::Stopped:
      return TAMLOG_ITEM_STOPPED;
    case LogItem::Kind::Reopened:
      return TAMLOG_ITEM_REOPENED;
    case LogItem::Kind::Blocked:
      return TAMLOG_ITEM_BLOCKED;
  }
  return TAMLOG_ITEM_LOST;
}

class LiveReader : public tamlog_reader {
 public:
  explicit LiveReader(TamLogClient::LogStreamOptions chosen) : options(std::move(chosen)) {}

  tamlog_status Wait(std::uint32_t timeoutMs, std::int32_t& change) override {
    const tamlog_status status = Follow(timeoutMs);
    if (status == TAMLOG_TIMED_OUT) return TAMLOG_OK;  // no change was seen
    if (status == TAMLOG_OK) change = static_cast<std::int32_t>(stream->Wait(timeoutMs));
    return status;
  }

  tamlog_status WithView(std::uint32_t budgetUs, tamlog_view_function look, void* context) override {
    LogReader reader;
    Status status = reader.Open(options.mapName);
    if (status != Status::Ok) return CodeOf(status);
    const std::function<void(const LogView&)> inPlace = [look, context](const LogView& seen) {
      const LogFileHeader& header = seen.Header();
      tamlog_view view{};
      view.size = sizeof(view);
      view.capacity = static_cast<std::uint32_t>(header.maxMessages);
      view.message_count = static_cast<std::uint32_t>(header.messageCount);
      view.next_slot = static_cast<std::uint32_t>(header.nextSlot);
      view.slots = reinterpret_cast<const std::uint8_t*>(&seen.Slot(0));
      view.internal = &seen;
      look(context, &view);
    };
    return CodeOf(reader.WithView(budgetUs, inPlace, options.timeoutMs));
  }

 protected:
  // Leaves nothing open: a reader that only takes snapshots never delays a server that stops.
  Status TakeSnapshot(TamLogClient::LogSnapshot& snapshot, std::uint32_t timeoutMs) override {
    LogReader reader;
    const Status status = reader.Open(options.mapName);
    remark = status == Status::Damaged ? "the shared file is too small for a log" : "";
    return status == Status::Ok ? reader.Snapshot(snapshot, timeoutMs) : status;
  }

  tamlog_status NextAfterStart(std::uint32_t timeoutMs, tamlog_item& item) override {
    const tamlog_status following = Follow(timeoutMs);
    if (following != TAMLOG_OK) return following;
    LogItem given;
    Status status = stream->Next(given, timeoutMs);
    if (status == Status::Ok && nothingLost && given.kind == LogItem::Kind::Lost) {
      status = stream->Next(given, timeoutMs);
    }
    nothingLost = false;
    if (status != Status::Ok) return CodeOf(status);
    item.kind = KindOf(given.kind);
    if (given.kind == LogItem::Kind::Lost) {
      item.lost_least = given.loss.least;
      item.lost_most = given.loss.most.value_or(UINT64_MAX);
    }
    if (given.kind == LogItem::Kind::Message) {
      last = *given.message;
      TamLogClient::FillMessage(last, given.late ? std::uint32_t{TAMLOG_MESSAGE_LATE} : 0U, item.message);
    }
    return TAMLOG_OK;
  }

  void OnStartReplaced() override { stream.reset(); }

  Cursor CursorOfLast() const override {
    const Cursor cursor = TamLogClient::CursorOf(last.body, 1);
    if (!stream) return cursor;
    const TamLogClient::LogSnapshot& seen = stream->Snapshot();
    const auto order = OrderMessages(seen).oldestFirst;
    const auto found = std::find_if(order.rbegin(), order.rend(), [&](std::uint32_t slot) {
      return std::memcmp(&seen.slots[slot].body, &last.body, sizeof(last.body)) == 0;
    });
    if (found != order.rend()) {
      return CursorOf(seen, order, static_cast<std::size_t>(order.rend() - found) - 1);
    }
    return cursor;
  }

 private:
  // Opens the stream, if that has not been done, so that it begins after the copy in `start`. Waits for a
  // server that has stopped since that copy.
  tamlog_status Follow(std::uint32_t timeoutMs) {
    using Clock = std::chrono::steady_clock;
    if (stream) return TAMLOG_OK;
    if (!start) Begin(copy->order.oldestFirst.size());
    TamLogClient::LogFollower follower;
    follower.Start(start->snapshot);
    const auto memory = follower.Remembered(start->snapshot.slots.size());
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    auto opened = std::make_unique<LogStream>(options);
    Status status = opened->Open(memory);
    const auto mayPass = [&status] {
      return status == Status::NotRunning || status == Status::TimedOut || status == Status::Unsteady;
    };
    while (mayPass() && Clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(std::min(kReopenMs, timeoutMs)));
      status = opened->Open(memory);
    }
    if (mayPass()) return TAMLOG_TIMED_OUT;
    if (!Readable(status)) return CodeOf(status);
    stream = std::move(opened);
    nothingLost = NothingIsLost(start->snapshot.header, stream->Snapshot().header);
    return TAMLOG_OK;
  }

  // The stream cannot rule out a loss when it finds no message of the copy, for example after an empty log.
  // The counters can: everything that was appended since is still in the ring, and nothing was written again.
  static bool NothingIsLost(const LogFileHeader& before, const LogFileHeader& now) {
    const auto appended = TamLogClient::AppendedSince(before, now);
    return appended && *appended <= static_cast<std::uint64_t>(std::max(now.messageCount, 0));
  }

  TamLogClient::LogStreamOptions options;
  std::unique_ptr<LogStream> stream;
  bool nothingLost = false;  // between `start` and the stream's first copy: a loss as its first item is none
};

}  // namespace

tamlog_status TAMLOG_CALL tamlog_reader_open_live(const tamlog_reader_options* options,
                                                  tamlog_reader** reader) {
  tamlog_reader_options given;
  if (reader == nullptr || !TamLogClient::CopyIn(options, given) || given.ordered > 1) {
    return TAMLOG_BAD_ARGUMENT;
  }
  return Guarded([&]() -> tamlog_status {
    TamLogClient::LogStreamOptions chosen;
    if (given.timeout_ms != 0) chosen.timeoutMs = given.timeout_ms;
    if (given.interval_ms != 0) chosen.intervalMs = given.interval_ms;
    chosen.ordered = given.ordered != 0;
    if (given.pipe_name != nullptr) chosen.pipeName = given.pipe_name;
    if (given.map_name != nullptr) chosen.mapName = given.map_name;
    auto opened = std::make_unique<LiveReader>(chosen);
    const Status status = opened->Refresh(chosen.timeoutMs);
    if (!Readable(status)) return CodeOf(status);
    *reader = opened.release();
    return CodeOf(status);
  });
}

int32_t TAMLOG_CALL tamlog_view_is_spent(const tamlog_view* view) {
  if (view == nullptr || view->internal == nullptr) return 1;
  return static_cast<const LogView*>(view->internal)->BudgetIsSpent() ? 1 : 0;
}
