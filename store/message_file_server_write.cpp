// The write side of MessageFileServer: intake, flush, clear, write to disk.

#include "store/message_file_server.h"
#include "store/message_filter.h"
#include "store/ring.h"
#include "store/with_context.h"
#include "util/exceptions.h"

using TamLogUtil::Mutex;
using TamLogUtil::Timeout;
using TamLogUtil::Exceptions::ExceptionWindows;

namespace {

constexpr char kCannotTake[] = "Failed to grab write access, some handles or pointers are invalid";
constexpr char kCannotFlush[] = "Failed to read the header during FlushWrites()";
constexpr char kCannotMove[] = "Failed to write a message during FlushWrites()";
constexpr char kCannotClear[] = "Failed to read the header during ClearMessages()";
constexpr char kCannotWriteToDisk[] =
    "Failed to force log file changes saved to disk, FlushViewOfFile() failed in WriteToDisk()";

class MappedTarget final : public FlushTarget {
 public:
  explicit MappedTarget(MappedView& mappedView) : view(mappedView) {}

  void ReadBack(std::int64_t index, LogMessage& message) override {
    WithContext(kCannotMove, [&] { message = view.ReadSlot(index); });
  }
  void WriteSlot(std::int64_t index, std::uint64_t sequence, const LogMessage& message) override {
    WithContext(kCannotMove, [&] { view.WriteSlot(index, sequence, message); });
  }
  void WriteHeader(const LogFileHeader& header) override {
    WithContext("Failed to rewrite the modified header in FlushWrites()", [&] { view.WriteHeader(header); });
  }

 private:
  MappedView& view;
};

}  // namespace

// Reads filters and capacity under one lock, so that a change of the settings applies to a message as a
// whole.
void MessageFileServer::AddMessage(const LogMessageBody& body) {
  std::uint32_t maxMessage = 0;
  {
    const Mutex::Access access(configLock, Timeout::Infinite);
    if (!IsMessageKept(*configuration, body)) return;
    maxMessage = configuration->maxMessage;
  }
  pending.Add(body, maxMessage);
  // Usually set already; a plain load avoids the barrier of a store.
  if (!changed.load(std::memory_order_acquire)) changed = true;
}

void MessageFileServer::FlushWrites() {
  if (pending.PendingCount() == 0) return;
  const WriteAccess access(this);
  UseView(access.ticket, kCannotTake, [&](MappedView& view) {
    LogFileHeader header = WithContext(kCannotFlush, [&] { return view.ReadHeader(); });
    changed = true;
    MappedTarget target(view);
    pending.Flush(header, target);
  });
}

// Empties the list twice: at the start, and again together with the file, for messages that arrived during
// the wait for readers.
void MessageFileServer::ClearMessages() {
  pending.Clear();
  const WriteAccess access(this);
  UseView(access.ticket, kCannotTake, [&](MappedView& view) {
    LogFileHeader header = WithContext(kCannotClear, [&] { return view.ReadHeader(); });
    changed = true;
    ClearRing(header);
    WithContext("Failed to rewrite the modified header in ClearMessages()",
                [&] { view.WriteHeader(header); });
    pending.Clear();
  });
}

// Computes the size before taking read access: the configuration's lock is never taken inside it.
void MessageFileServer::WriteToDisk() {
  const std::uint64_t size = LogFileSize(ReadSettings().maxMessage);
  const ReadAccess access =
      WithContext("Failed to get file read access in WriteToDisk()", [this] { return ReadAccess(this); });
  UseView(access.ticket, kCannotWriteToDisk, [&](MappedView& view) {
    if (!view.FlushToDisk(size)) throw ExceptionWindows(kCannotWriteToDisk);
  });
}
