#pragma once

// What the two kinds of reader behind the C interface share. A reader holds a copy of the log, and a place in
// it from which `next` goes on; what comes behind that copy is the matter of the kind.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "client/c/c_interface.h"
#include "client/log/cursor.h"
#include "client/log/log_snapshot.h"

namespace TamLogClient {

struct LogCopy {
  LogSnapshot snapshot;
  MessageOrder order;
};

}  // namespace TamLogClient

struct tamlog_reader {
  using LogCopy = TamLogClient::LogCopy;
  using Status = TamLogClient::Status;

  tamlog_reader() = default;
  virtual ~tamlog_reader() = default;
  tamlog_reader(const tamlog_reader&) = delete;
  tamlog_reader& operator=(const tamlog_reader&) = delete;

  // Replaces `copy` and `remark`. Ok or Damaged when there is a new copy.
  Status Refresh(std::uint32_t timeoutMs);

  // From now on next gives the messages of `copy` from this place in time order on.
  void Begin(std::size_t position);

  tamlog_status Next(std::uint32_t timeoutMs, tamlog_item& item);
  tamlog_status Seek(const char* cursor);
  virtual tamlog_status Wait(std::uint32_t timeoutMs, std::int32_t& change) = 0;
  virtual tamlog_status WithView(std::uint32_t budgetUs, tamlog_view_function look, void* context) = 0;
  tamlog_status LastCursor(std::string& text) const;

  std::shared_ptr<LogCopy> copy = std::make_shared<LogCopy>();
  std::string remark;

 protected:
  virtual Status TakeSnapshot(TamLogClient::LogSnapshot& snapshot, std::uint32_t timeoutMs) = 0;
  // What comes behind `start`. Sets `last` for a message.
  virtual tamlog_status NextBehind(std::uint32_t timeoutMs, tamlog_item& item) = 0;
  // `start` is another one now.
  virtual void BeginAnew() {}
  // The cursor of `last`, which NextBehind gave.
  virtual TamLogClient::Cursor CursorOfLast() const = 0;

  std::shared_ptr<LogCopy> start;  // next gives its messages from `startNext` on, and then what comes behind
  std::size_t startNext = 0;
  LogMessage last{};  // given by next
  bool anyGiven = false;
  bool lastIsOfStart = false;  // then it is the one before startNext
};
