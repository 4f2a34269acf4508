#include "client/c/c_reader.h"

#include <optional>
#include <vector>

#include "client/file/log_file_reader.h"
#include "client/message/log_message_view.h"

using TamLogClient::Cursor;
using TamLogClient::Guarded;
using TamLogClient::Status;

namespace {

class FileReader : public tamlog_reader {
 public:
  explicit FileReader(const char* chosen) : path(chosen) {}
  tamlog_status Wait(std::uint32_t /*timeoutMs*/, std::int32_t& /*change*/) override { return TAMLOG_END; }
  tamlog_status WithView(std::uint32_t /*budgetUs*/, tamlog_view_function /*look*/,
                         void* /*context*/) override {
    return TAMLOG_NOT_SUPPORTED;
  }

 protected:
  Status TakeSnapshot(TamLogClient::LogSnapshot& snapshot, std::uint32_t /*timeoutMs*/) override {
    auto contents = TamLogClient::ReadLogFile(path);
    remark = std::move(contents.remark);
    snapshot = std::move(contents.snapshot);
    return contents.status;
  }
  tamlog_status NextAfterStart(std::uint32_t /*timeoutMs*/, tamlog_item& /*item*/) override {
    return TAMLOG_END;
  }
  Cursor CursorOfLast() const override { return {}; }

 private:
  std::string path;
};

}  // namespace

Cursor TamLogClient::LogCopy::CursorAt(std::size_t position) {
  if (!twins) twins.emplace().Add(snapshot);
  const LogMessage& message = snapshot.slots[order.oldestFirst[position]];
  return CursorOf(message.body, twins->Of(&message));
}

Status tamlog_reader::Refresh(std::uint32_t timeoutMs) {
  // A copy that Next still reads from must not change.
  auto fresh = copy.use_count() == 1 ? copy : std::make_shared<LogCopy>();
  Status status = TakeSnapshot(fresh->snapshot, timeoutMs);
  if (!Readable(status)) {
    if (fresh == copy) copy = std::make_shared<LogCopy>();
    return status;
  }
  fresh->order = OrderMessages(fresh->snapshot);
  fresh->twins.reset();
  copy = std::move(fresh);
  if (copy->order.damaged > 0 && status == Status::Ok) {
    remark = std::to_string(copy->order.damaged) + " messages break a rule of the format";
    status = Status::Damaged;
  }
  return status;
}

void tamlog_reader::Begin(std::size_t position) {
  start = copy;
  startNext = position;
  lastIsOfStart = false;
  OnStartReplaced();
}

tamlog_status tamlog_reader::Next(std::uint32_t timeoutMs, tamlog_item& item) {
  item = {};
  if (start && startNext < start->order.oldestFirst.size()) {
    last = start->snapshot.slots[start->order.oldestFirst[startNext++]];
    hasLast = lastIsOfStart = true;
    TamLogClient::FillMessage(last, 0, item.message);
    return TAMLOG_OK;
  }
  const tamlog_status status = NextAfterStart(timeoutMs, item);
  if (status == TAMLOG_OK && item.kind == TAMLOG_ITEM_MESSAGE) {
    hasLast = true;
    lastIsOfStart = false;
  }
  return status;
}

tamlog_status tamlog_reader::Seek(const char* cursor) {
  std::optional<Cursor> wanted;
  if (cursor != nullptr) {
    wanted = TamLogClient::ParseCursor(cursor);
    if (!wanted) return TAMLOG_BAD_ARGUMENT;
  }
  const Status status = Refresh(5000);
  if (!Readable(status)) return CodeOf(status);
  if (!wanted) {
    Begin(0);
    return TAMLOG_OK;
  }
  const auto place = FindCursor(copy->snapshot, copy->order.oldestFirst, *wanted);
  Begin(place.next);
  return place.found ? TAMLOG_OK : TAMLOG_NOT_FOUND;
}

tamlog_status tamlog_reader::LastCursor(std::string& text) const {
  if (!hasLast) return TAMLOG_END;
  const bool ofStart = lastIsOfStart && start;
  text = FormatCursor(ofStart ? start->CursorAt(startNext - 1) : CursorOfLast());
  return TAMLOG_OK;
}

// --- The interface.

tamlog_status TAMLOG_CALL tamlog_reader_open_file(const char* path, tamlog_reader** reader) {
  if (path == nullptr || reader == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] {
    auto opened = std::make_unique<FileReader>(path);
    const Status status = opened->Refresh(0);
    if (!Readable(status)) return TamLogClient::CodeOf(status);
    opened->Begin(0);
    *reader = opened.release();
    return TamLogClient::CodeOf(status);
  });
}

void TAMLOG_CALL tamlog_reader_close(tamlog_reader* reader) {
  const std::unique_ptr<tamlog_reader> owned(reader);
}

tamlog_status TAMLOG_CALL tamlog_reader_snapshot(tamlog_reader* reader, uint32_t timeout_ms) {
  if (reader == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] { return TamLogClient::CodeOf(reader->Refresh(timeout_ms)); });
}

uint32_t TAMLOG_CALL tamlog_reader_count(const tamlog_reader* reader) {
  return reader == nullptr ? 0 : static_cast<uint32_t>(reader->copy->order.oldestFirst.size());
}

tamlog_status TAMLOG_CALL tamlog_reader_get_message(const tamlog_reader* reader, uint32_t index,
                                                    tamlog_message* message) {
  if (reader == nullptr || !TamLogClient::CanReceive(message)) return TAMLOG_BAD_ARGUMENT;
  const TamLogClient::LogCopy& copy = *reader->copy;
  if (index >= copy.order.oldestFirst.size()) return TAMLOG_END;
  tamlog_message result;
  TamLogClient::FillMessage(copy.snapshot.slots[copy.order.oldestFirst[index]], 0, result);
  TamLogClient::CopyOut(result, message);
  return TAMLOG_OK;
}

tamlog_status TAMLOG_CALL tamlog_reader_get_info(const tamlog_reader* reader, tamlog_log_info* info) {
  if (reader == nullptr || !TamLogClient::CanReceive(info)) return TAMLOG_BAD_ARGUMENT;
  const LogFileHeader& header = reader->copy->snapshot.header;
  tamlog_log_info result{};
  result.server_running = header.serverRunning != 0 ? 1 : 0;
  result.message_count = tamlog_reader_count(reader);
  result.capacity = header.maxMessages > 0 ? static_cast<uint32_t>(header.maxMessages) : 0;
  result.change_count = header.changeCount;
  result.rewrite_count = header.rewriteCount;
  result.next_sequence = header.nextSequence;
  result.damaged = reader->copy->order.damaged;
  result.reordered = reader->copy->order.reordered ? 1 : 0;
  TamLogClient::CopyOut(result, info);
  return TAMLOG_OK;
}

const char* TAMLOG_CALL tamlog_reader_remark(const tamlog_reader* reader) {
  return reader == nullptr ? "" : reader->remark.c_str();
}

tamlog_status TAMLOG_CALL tamlog_reader_next(tamlog_reader* reader, uint32_t timeout_ms, tamlog_item* item) {
  if (reader == nullptr || !TamLogClient::CanReceive(item)) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] {
    tamlog_item result{};
    const tamlog_status status = reader->Next(timeout_ms, result);
    if (status == TAMLOG_OK) TamLogClient::CopyOut(result, item);
    return status;
  });
}

tamlog_status TAMLOG_CALL tamlog_reader_wait(tamlog_reader* reader, uint32_t timeout_ms, int32_t* change) {
  if (reader == nullptr || change == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] {
    std::int32_t seen = TAMLOG_NOP;
    const tamlog_status status = reader->Wait(timeout_ms, seen);
    if (status == TAMLOG_OK) *change = seen;
    return status;
  });
}

tamlog_status TAMLOG_CALL tamlog_reader_with_view(tamlog_reader* reader, uint32_t budget_us,
                                                  tamlog_view_function look, void* context) {
  if (reader == nullptr || look == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] { return reader->WithView(budget_us, look, context); });
}

tamlog_status TAMLOG_CALL tamlog_reader_get_cursor(const tamlog_reader* reader, uint32_t index, char* buffer,
                                                   uint64_t capacity, uint64_t* length) {
  if (reader == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&]() -> tamlog_status {
    TamLogClient::LogCopy& copy = *reader->copy;
    if (index >= copy.order.oldestFirst.size()) return TAMLOG_END;
    const std::string text = FormatCursor(copy.CursorAt(index));
    return TamLogClient::CopyText(text, buffer, capacity, length);
  });
}

tamlog_status TAMLOG_CALL tamlog_reader_last_cursor(const tamlog_reader* reader, char* buffer,
                                                    uint64_t capacity, uint64_t* length) {
  if (reader == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] {
    std::string text;
    const tamlog_status status = reader->LastCursor(text);
    return status == TAMLOG_OK ? TamLogClient::CopyText(text, buffer, capacity, length) : status;
  });
}

tamlog_status TAMLOG_CALL tamlog_reader_seek(tamlog_reader* reader, const char* cursor) {
  if (reader == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] { return reader->Seek(cursor); });
}

tamlog_status TAMLOG_CALL tamlog_reader_test_cursor(const tamlog_reader* reader, const char* cursor) {
  if (reader == nullptr || cursor == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&]() -> tamlog_status {
    const auto wanted = TamLogClient::ParseCursor(cursor);
    if (!wanted) return TAMLOG_BAD_ARGUMENT;
    const TamLogClient::LogCopy& copy = *reader->copy;
    return FindCursor(copy.snapshot, copy.order.oldestFirst, *wanted).found ? TAMLOG_OK : TAMLOG_NOT_FOUND;
  });
}
