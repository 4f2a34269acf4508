#pragma once

// The common part of the two kinds of reader of the C interface. A reader holds a copy of the log and a
// position in it, at which `next` continues. What comes after that copy is handled by the kind: a file ends,
// the running server's log continues. A reader is used by one thread at a time.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "client/c/c_interface.h"
#include "client/log/cursor.h"
#include "client/log/log_snapshot.h"

namespace TamLogClient {

struct LogCopy {
  LogSnapshot snapshot;
  MessageOrder order;
  std::optional<TwinNumbers> twins;  // counted once: a sender can give all messages one time

  // Returns the cursor of the message at a position in time order.
  Cursor CursorAt(std::size_t position);
};

}  // namespace TamLogClient

struct tamlog_reader {
  using LogCopy = TamLogClient::LogCopy;
  using Status = TamLogClient::Status;

  tamlog_reader() = default;
  virtual ~tamlog_reader() = default;
  tamlog_reader(const tamlog_reader&) = delete;
  tamlog_reader& operator=(const tamlog_reader&) = delete;

  // Replaces `copy` and `remark`. Ok, Damaged: `copy` is new. Any other status: it is unchanged or empty.
  Status Refresh(std::uint32_t timeoutMs);

  // Lets Next continue with the messages of `copy`, from this position in time order on.
  void Begin(std::size_t position);

  tamlog_status Next(std::uint32_t timeoutMs, tamlog_item& item);
  tamlog_status Seek(const char* cursor);
  // Sets `change` to one of TAMLOG_NOP, TAMLOG_APPEND, ...
  virtual tamlog_status Wait(std::uint32_t timeoutMs, std::int32_t& change) = 0;
  virtual tamlog_status WithView(std::uint32_t budgetUs, tamlog_view_function look, void* context) = 0;
  tamlog_status LastCursor(std::string& text) const;

  std::shared_ptr<LogCopy> copy = std::make_shared<LogCopy>();
  std::string remark;

 protected:
  // Copies the whole log.
  virtual Status TakeSnapshot(TamLogClient::LogSnapshot& snapshot, std::uint32_t timeoutMs) = 0;
  // Returns the next item after `start`. Sets `last` for a message.
  virtual tamlog_status NextAfterStart(std::uint32_t timeoutMs, tamlog_item& item) = 0;
  // Called after `start` has been replaced.
  virtual void OnStartReplaced() {}
  // Returns the cursor of `last`, which NextAfterStart returned.
  virtual TamLogClient::Cursor CursorOfLast() const = 0;

  std::shared_ptr<LogCopy> start;  // Next returns its messages from `startNext` on, and then what comes after
  std::size_t startNext = 0;
  LogMessage last{};  // the message that Next returned last
  bool hasLast = false;
  bool lastIsOfStart = false;  // `last` is the message before startNext
};
